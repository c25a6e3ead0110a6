// Times one run of a program: to its end, or until its standard output has shown a text.
//
//   time_run TEXT PROGRAM [ARGUMENT]...
//
// Prints the nanoseconds from just before the program was started. With an empty TEXT the program
// must end well; otherwise it is killed once the text was seen.
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include "bench.h"

extern char **environ;

static void ReadUntil(int output, const char *text) {
  char seen[65536];
  size_t size = 0;
  ssize_t more;
  while ((more = read(output, seen + size, sizeof(seen) - 1 - size)) > 0) {
    size += (size_t)more;
    seen[size] = '\0';
    if (*text != '\0' && strstr(seen, text) != NULL) {
      return;
    }
  }
  Require(*text == '\0', "the text");
}

int main(int argc, char *argv[]) {
  Require(argc >= 3, "usage");
  const char *text = argv[1];
  int output[2];
  Require(pipe(output) == 0, "pipe");
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
  posix_spawn_file_actions_addclose(&actions, output[0]);
  posix_spawn_file_actions_addclose(&actions, output[1]);

  const int64_t start = Nanoseconds(CLOCK_MONOTONIC);
  pid_t program;
  Require(posix_spawn(&program, argv[2], &actions, NULL, argv + 2, environ) == 0, "posix_spawn");
  close(output[1]);
  ReadUntil(output[0], text);
  int status = 0;
  if (*text == '\0') {
    waitpid(program, &status, 0);
  }
  const int64_t end = Nanoseconds(CLOCK_MONOTONIC);
  if (*text != '\0') {
    kill(program, SIGKILL);
    waitpid(program, NULL, 0);
  }
  Require(status == 0, argv[2]);
  printf("%lld\n", (long long)(end - start));
  return EXIT_SUCCESS;
}
