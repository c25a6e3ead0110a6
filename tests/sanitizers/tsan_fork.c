/* For builds with the thread sanitizer. Qt starts a program with the system call clone, which the
 * sanitizer does not see: its locks may then be held for ever in the child, which hangs. Here the
 * child comes from fork, which the sanitizer knows. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <sched.h>
#include <signal.h>
#include <stdarg.h>
#include <sys/pidfd.h>
#include <sys/syscall.h>
#include <unistd.h>

/* Function pointers from dlsym are what POSIX asks for and ISO C does not know. */
#pragma GCC diagnostic ignored "-Wpedantic"

long syscall(long number, ...) {
  va_list arguments;
  va_start(arguments, number);
  long values[6];
  for (int index = 0; index < 6; ++index) {
    values[index] = va_arg(arguments, long);
  }
  va_end(arguments);
  if (number == SYS_clone && values[0] == (CLONE_PIDFD | SIGCHLD)) {
    const pid_t child = fork();
    if (child > 0) {
      *(int *)values[2] = pidfd_open(child, 0);
    }
    return child;
  }
  long (*next)(long, ...) = (long (*)(long, ...))dlsym(RTLD_NEXT, "syscall");
  return next(number, values[0], values[1], values[2], values[3], values[4], values[5]);
}
