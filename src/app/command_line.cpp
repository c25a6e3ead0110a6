#include "app/command_line.h"

#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "app/client_sender.h"
#include "base/standard_streams.h"
#include "service/service.h"

namespace ov {
namespace {

int FailWithUsage(const char *program) {
  std::fprintf(stderr, "Usage: %s -e EVENT_ID [VALUES]\n", program);
  std::fprintf(stderr, "   or: %s -s\n", program);
  std::fputs("\n", stderr);
  std::fputs(" -s \tStart the event service\n", stderr);
  std::fputs(" -e \tSend an event. VALUES is a comma separated list of values.\n", stderr);
  return EXIT_FAILURE;
}

int FailWithInvalidParameters(const char *program) {
  std::fputs("Invalid parameters\n", stderr);
  return FailWithUsage(program);
}

}  // namespace

int RunCommandLine(int argc, char *argv[]) {
  SetUpStandardStreams();
  if (argc < 2) {
    return FailWithUsage(argc > 0 ? argv[0] : "");
  }
  const std::string_view option = argv[1];
  if (option == "-s") {
    if (argc != 2) {
      return FailWithInvalidParameters(argv[0]);
    }
    RunService();
  }
  if (option != "-e") {
    std::fprintf(stderr, "Unknown option: %s\n", argv[1]);
    return FailWithUsage(argv[0]);
  }
  if (argc != 3 && argc != 4) {
    return FailWithInvalidParameters(argv[0]);
  }
  SendEvent(argv[2], argc == 4 ? argv[3] : nullptr);
  return EXIT_SUCCESS;
}

}  // namespace ov
