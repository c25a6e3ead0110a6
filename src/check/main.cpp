#include "check/check_command.h"

int main(int argc, char *argv[]) { return ov::RunCheckCommand(argc, argv); }
