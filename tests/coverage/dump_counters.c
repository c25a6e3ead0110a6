/* Linked into the programs of the coverage build. A program writes its counters when it exits; with
 * this file also when _exit or one of these signals ends it. SIGRTMAX is what the tests send. */
#include <signal.h>
#include <stddef.h>
#include <stdlib.h>
#include <sys/syscall.h>
#include <unistd.h>

void __gcov_dump(void);

static void DumpAndEnd(int number) {
  /* Ends the process if the interrupted code holds a lock that the dump needs. */
  signal(SIGALRM, SIG_DFL);
  alarm(5);
  __gcov_dump();
  signal(number, SIG_DFL);
  raise(number);
}

__attribute__((constructor)) static void DumpAtSignals(void) {
  const int numbers[] = {SIGHUP, SIGINT, SIGABRT, SIGPIPE, SIGTERM, SIGRTMAX};
  for (size_t i = 0; i < sizeof numbers / sizeof *numbers; ++i) {
    if (signal(numbers[i], DumpAndEnd) == SIG_IGN) {
      signal(numbers[i], SIG_IGN);
    }
  }
}

void _exit(int status) {
  __gcov_dump();
  for (;;) {
    syscall(SYS_exit_group, status);
  }
}

void _Exit(int status) { _exit(status); }
