/* A library for tests to preload: it makes chosen calls of the event logger fail, in turn, and
 * delays some, and the start of its threads. It is steered by the environment:
 *
 *   OV_FAULTS=accept4:2:24,bind:1:98   the 2nd call of accept4 fails with error 24, the first of
 *                                      bind with error 98; `pthread_*` return theirs
 *   OV_FAULTS=accept4:2+:24            every call of accept4 from the 2nd on fails
 *   OV_DELAYS=write:1:500              the first call of write sleeps 500 ms before it is made
 *   OV_THREAD_START_DELAY_MS=500       every new thread sleeps that long before it runs
 *
 * A call of `sleep` that fails returns at once. The programs that the event logger runs are left
 * alone.
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <ifaddrs.h>
#include <netdb.h>
#include <pthread.h>
#include <stdarg.h>
#include <stdatomic.h>
#include <stdbool.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

__attribute__((constructor)) static void LeaveOtherProgramsAlone(void) { unsetenv("LD_PRELOAD"); }

/* The number that `list`, in the form of OV_FAULTS, gives for this call of `name`, or 0. */
static long Lookup(const char *list, const char *name, int call) {
  const char *entry = list;
  const size_t length = strlen(name);
  while (entry != NULL && *entry != '\0') {
    if (strncmp(entry, name, length) == 0 && entry[length] == ':') {
      char *rest = NULL;
      const long number = strtol(entry + length + 1, &rest, 10);
      const bool andLater = *rest == '+';
      if (call == number || (andLater && call > number)) {
        return strtol(rest + (andLater ? 2 : 1), NULL, 10);
      }
    }
    entry = strchr(entry, ',');
    if (entry != NULL) {
      ++entry;
    }
  }
  return 0;
}

static void Sleep(long milliseconds) {
  const struct timespec pause = {milliseconds / 1000, milliseconds % 1000 * 1000000};
  nanosleep(&pause, NULL);
}

/* The error to fail this call of `name` with, or 0. `calls` counts the calls of one function. */
static int Fault(const char *name, atomic_int *calls) {
  const int call = atomic_fetch_add(calls, 1) + 1;
  const long delay = Lookup(getenv("OV_DELAYS"), name, call);
  if (delay > 0) {
    Sleep(delay);
  }
  return (int)Lookup(getenv("OV_FAULTS"), name, call);
}

/* Defines a stand-in for a function that reports failure with -1 and errno. */
#define STAND_IN(type, name, parameters, arguments)                         \
  type name parameters {                                                    \
    static atomic_int calls;                                                \
    const int error = Fault(#name, &calls);                                 \
    if (error != 0) {                                                       \
      errno = error;                                                        \
      return -1;                                                            \
    }                                                                       \
    type(*real) parameters = (type(*) parameters)(dlsym(RTLD_NEXT, #name)); \
    return real arguments;                                                  \
  }

/* Function pointers from dlsym are what POSIX asks for and ISO C does not know. */
#pragma GCC diagnostic ignored "-Wpedantic"

STAND_IN(int, socket, (int domain, int type, int protocol), (domain, type, protocol))
STAND_IN(int, bind, (int fd, const struct sockaddr *address, socklen_t size), (fd, address, size))
STAND_IN(int, listen, (int fd, int backlog), (fd, backlog))
STAND_IN(int, accept4, (int fd, struct sockaddr *address, socklen_t *size, int flags),
         (fd, address, size, flags))
STAND_IN(int, connect, (int fd, const struct sockaddr *address, socklen_t size),
         (fd, address, size))
STAND_IN(ssize_t, read, (int fd, void *buffer, size_t size), (fd, buffer, size))
STAND_IN(ssize_t, write, (int fd, const void *buffer, size_t size), (fd, buffer, size))
STAND_IN(ssize_t, send, (int fd, const void *bytes, size_t size, int flags),
         (fd, bytes, size, flags))
STAND_IN(ssize_t, sendto,
         (int fd, const void *bytes, size_t size, int flags, const struct sockaddr *address,
          socklen_t addressSize),
         (fd, bytes, size, flags, address, addressSize))
STAND_IN(int, close, (int fd), (fd))
STAND_IN(int, usleep, (useconds_t microseconds), (microseconds))
STAND_IN(int, getifaddrs, (struct ifaddrs * *list), (list))

unsigned sleep(unsigned seconds) {
  static atomic_int calls;
  if (Fault("sleep", &calls) != 0) {
    return seconds; /* as after a signal */
  }
  unsigned (*real)(unsigned) = (unsigned (*)(unsigned))dlsym(RTLD_NEXT, "sleep");
  return real(seconds);
}

int fcntl(int fd, int command, ...) {
  static atomic_int calls;
  /* The event logger locks nothing; a build for measurements does, before main. */
  const int error = command == F_SETLKW ? 0 : Fault("fcntl", &calls);
  if (error != 0) {
    errno = error;
    return -1;
  }
  va_list arguments;
  va_start(arguments, command);
  void *argument = va_arg(arguments, void *);
  va_end(arguments);
  int (*real)(int, int, ...) = (int (*)(int, int, ...))dlsym(RTLD_NEXT, "fcntl");
  return real(fd, command, argument);
}

struct DelayedThread {
  void *(*body)(void *);
  void *argument;
};

static void *RunDelayed(void *argument) {
  const struct DelayedThread thread = *(struct DelayedThread *)argument;
  free(argument);
  Sleep(strtol(getenv("OV_THREAD_START_DELAY_MS"), NULL, 10));
  return thread.body(thread.argument);
}

int pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*body)(void *),
                   void *argument) {
  static atomic_int calls;
  const int error = Fault("pthread_create", &calls);
  if (error != 0) {
    return error;
  }
  int (*real)(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *) =
      (int (*)(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *))dlsym(
          RTLD_NEXT, "pthread_create");
  if (getenv("OV_THREAD_START_DELAY_MS") == NULL) {
    return real(thread, attributes, body, argument);
  }
  struct DelayedThread *delayed = malloc(sizeof(*delayed));
  delayed->body = body;
  delayed->argument = argument;
  return real(thread, attributes, RunDelayed, delayed);
}

int pthread_join(pthread_t thread, void **result) {
  static atomic_int calls;
  int (*real)(pthread_t, void **) = (int (*)(pthread_t, void **))dlsym(RTLD_NEXT, "pthread_join");
  const int error = Fault("pthread_join", &calls);
  return error != 0 ? error : real(thread, result);
}
