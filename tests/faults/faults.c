/* A library for tests to preload: it makes chosen calls of the event logger fail, in turn, and
 * delays some, and the start of its threads. It is steered by the environment:
 *
 *   OV_FAULTS=accept4:2:24,bind:1:98   the 2nd call of accept4 fails with error 24, the first of
 *                                      bind with error 98; functions that return their error
 *                                      (pthread_*, posix_spawn*, get*info) return it
 *   OV_FAULTS=accept4:2+:24            every call of accept4 from the 2nd on fails
 *   OV_FAULTS=fcntl@4:1:9              the first call of fcntl with command 4 fails; see below
 *   OV_FAULTS=accept4>shutdown:1:24    the first call of accept4 after one of shutdown fails
 *   OV_DELAYS=write:1:500              the first call of write sleeps 500 ms before it is made
 *   OV_FAULTS_LOG=/tmp/log             a line NAME:ERROR there for each call that was let fail
 *   OV_THREAD_START_DELAY_MS=500       every new thread sleeps that long before it runs
 *   OV_LEAK=33                         a block of so many bytes is lost at the start
 *
 * Both sides of the > may have an @, and what stands behind it is a path, of what is named or what
 * a descriptor is open for; "socket", "pipe" or "anon_inode" for other descriptors; the family of a
 * new socket, of the address that is bound or connected to; the command of fcntl; the options of
 * waitpid; the seconds of a sleep; the size of a block of memory. A list has up to 32 elements.
 * Where two are about one call, both count it, and the first decides.
 *
 * A call of `sleep` that fails returns at once, and so does one of `poll` that fails with -1: its
 * time is over. A `close` that fails has done its work nevertheless; the thread of a `pthread_join`
 * that fails goes on. The programs that the event logger runs are left alone.
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <ifaddrs.h>
#include <limits.h>
#include <netdb.h>
#include <poll.h>
#include <pthread.h>
#include <semaphore.h>
#include <signal.h>
#include <spawn.h>
#include <stdarg.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "fault_list.h"

__attribute__((constructor)) static void LeaveOtherProgramsAlone(void) { unsetenv("LD_PRELOAD"); }

__attribute__((constructor)) static void Leak(void) {
  const char *size = getenv("OV_LEAK");
  if (size != NULL) {
    void *volatile lost = malloc(strtoul(size, NULL, 10));
    (void)lost;
  }
}

static struct Detail Nothing(void) { return (struct Detail){NULL, 0}; }
static struct Detail Number(long number) { return (struct Detail){NULL, number}; }
static struct Detail Text(const char *text) { return (struct Detail){text, 0}; }

/* `text` is what it is written to, of PATH_MAX bytes. */
static struct Detail Descriptor(int fd, char *text) {
  const int errorBefore = errno;
  char link[32];
  snprintf(link, sizeof(link), "/proc/self/fd/%d", fd);
  const long length = syscall(SYS_readlink, link, text, PATH_MAX - 1);
  text[length < 0 ? 0 : length] = '\0';
  if (text[0] != '/') {
    text[strcspn(text, ":")] = '\0';
  }
  errno = errorBefore;
  return Text(text);
}

/* Function pointers from dlsym are what POSIX asks for and ISO C does not know. */
#pragma GCC diagnostic ignored "-Wpedantic"
/* The C library declares that poll only writes to its array. */
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#define REAL(name) ((__typeof__(&(name)))dlsym(RTLD_NEXT, #name))

/* A search frees what the thread's last one left if that failed, as those of a sanitizer's start
 * may. It is freed here: a sanitizer that opens files for a report has another allocator. */
__attribute__((constructor)) static void ForgetFailedSearch(void) {
  /* Kept, so that this is no jump to dlsym: RTLD_NEXT is about whoever calls that. */
  int (*volatile kept)(const char *, int, ...) = REAL(open);
  (void)kept;
}

/* Defines a stand-in for a function that reports failure with -1 and errno. */
#define STAND_IN(type, name, parameters, arguments, detail) \
  type name parameters {                                    \
    const int error = (int)Fault(#name, detail);            \
    if (error != 0) {                                       \
      errno = error;                                        \
      return -1;                                            \
    }                                                       \
    return REAL(name) arguments;                            \
  }

/* The same for the calls whose detail is what their descriptor `fd` is open for. */
#define DESCRIPTOR_STAND_IN(type, name, parameters, arguments) \
  type name parameters {                                       \
    char text[PATH_MAX];                                       \
    const int error = (int)Fault(#name, Descriptor(fd, text)); \
    if (error != 0) {                                          \
      errno = error;                                           \
      return -1;                                               \
    }                                                          \
    return REAL(name) arguments;                               \
  }

/* Defines a stand-in for a function that returns its error. */
#define RETURNING_STAND_IN(name, parameters, arguments, detail) \
  int name parameters {                                         \
    const int error = (int)Fault(#name, detail);                \
    return error != 0 ? error : REAL(name) arguments;           \
  }

STAND_IN(int, socket, (int domain, int type, int protocol), (domain, type, protocol),
         Number(domain))
STAND_IN(int, bind, (int fd, const struct sockaddr *address, socklen_t size), (fd, address, size),
         Number(address->sa_family))
STAND_IN(int, listen, (int fd, int backlog), (fd, backlog), Nothing())
STAND_IN(int, accept4, (int fd, struct sockaddr *address, socklen_t *size, int flags),
         (fd, address, size, flags), Nothing())
STAND_IN(int, connect, (int fd, const struct sockaddr *address, socklen_t size),
         (fd, address, size), Number(address->sa_family))
STAND_IN(int, shutdown, (int fd, int how), (fd, how), Nothing())
DESCRIPTOR_STAND_IN(ssize_t, read, (int fd, void *buffer, size_t size), (fd, buffer, size))
DESCRIPTOR_STAND_IN(ssize_t, write, (int fd, const void *buffer, size_t size), (fd, buffer, size))
STAND_IN(ssize_t, send, (int fd, const void *bytes, size_t size, int flags),
         (fd, bytes, size, flags), Nothing())
STAND_IN(ssize_t, sendto,
         (int fd, const void *bytes, size_t size, int flags, const struct sockaddr *address,
          socklen_t addressSize),
         (fd, bytes, size, flags, address, addressSize), Nothing())

STAND_IN(int, access, (const char *path, int mode), (path, mode), Text(path))
STAND_IN(int, stat, (const char *path, struct stat *status), (path, status), Text(path))
DESCRIPTOR_STAND_IN(int, fstat, (int fd, struct stat *status), (fd, status))
#ifdef OV_THREAD_SANITIZER
/* What the sanitizer makes of a call of fstat. */
int __fxstat(int version, int fd, struct stat *status) {
  (void)version;
  char text[PATH_MAX];
  errno = (int)Fault("fstat", Descriptor(fd, text));
  return errno != 0 ? -1 : REAL(fstat)(fd, status);
}
#endif
STAND_IN(int, unlink, (const char *path), (path), Text(path))
STAND_IN(int, usleep, (useconds_t microseconds), (microseconds), Nothing())
STAND_IN(int, getifaddrs, (struct ifaddrs * *list), (list), Nothing())
STAND_IN(int, pipe2, (int ends[2], int flags), (ends, flags), Nothing())
STAND_IN(int, pidfd_open, (pid_t pid, unsigned flags), (pid, flags), Nothing())
STAND_IN(pid_t, waitpid, (pid_t pid, int *status, int options), (pid, status, options),
         Number(options))
STAND_IN(int, kill, (pid_t pid, int number), (pid, number), Nothing())
STAND_IN(int, sem_wait, (sem_t * semaphore), (semaphore), Nothing())
STAND_IN(int, close_range, (unsigned first, unsigned last, int flags), (first, last, flags),
         Nothing())

RETURNING_STAND_IN(getaddrinfo,
                   (const char *name, const char *service, const struct addrinfo *hints,
                    struct addrinfo **results),
                   (name, service, hints, results), Nothing())
RETURNING_STAND_IN(getnameinfo,
                   (const struct sockaddr *address, socklen_t addressSize, char *host,
                    socklen_t hostSize, char *service, socklen_t serviceSize, int flags),
                   (address, addressSize, host, hostSize, service, serviceSize, flags), Nothing())
RETURNING_STAND_IN(posix_spawnp,
                   (pid_t * pid, const char *file, const posix_spawn_file_actions_t *actions,
                    const posix_spawnattr_t *attributes, char *const arguments[],
                    char *const environment[]),
                   (pid, file, actions, attributes, arguments, environment), Text(file))
RETURNING_STAND_IN(posix_spawn_file_actions_adddup2,
                   (posix_spawn_file_actions_t * actions, int fd, int newFd), (actions, fd, newFd),
                   Number(newFd))
RETURNING_STAND_IN(posix_spawn_file_actions_addopen,
                   (posix_spawn_file_actions_t * actions, int fd, const char *path, int flags,
                    mode_t mode),
                   (actions, fd, path, flags, mode), Text(path))

int close(int fd) {
  char text[PATH_MAX];
  const int error = (int)Fault("close", Descriptor(fd, text));
  const int result = REAL(close)(fd);
  if (error != 0) {
    errno = error;
  }
  return error != 0 ? -1 : result;
}

unsigned sleep(unsigned seconds) {
  if (Fault("sleep", Number(seconds)) != 0) {
    return seconds; /* as after a signal */
  }
  return REAL(sleep)(seconds);
}

int poll(struct pollfd *awaited, nfds_t count, int timeout) {
  char text[PATH_MAX];
  const int error = (int)Fault("poll", Descriptor(awaited->fd, text));
  if (error != 0) {
    errno = error;
    return error < 0 ? 0 : -1;
  }
  return REAL(poll)(awaited, count, timeout);
}

/* Defines a stand-in for a function that takes one more argument for some of its commands. */
#define VARIADIC_STAND_IN(name, firstType, first, secondType, second, fault) \
  int name(firstType first, secondType second, ...) {                        \
    const int error = (int)(fault);                                          \
    if (error != 0) {                                                        \
      errno = error;                                                         \
      return -1;                                                             \
    }                                                                        \
    va_list arguments;                                                       \
    va_start(arguments, second);                                             \
    void *argument = va_arg(arguments, void *);                              \
    va_end(arguments);                                                       \
    return REAL(name)(first, second, argument);                              \
  }

/* The event logger locks nothing; a build for measurements does, before main. */
VARIADIC_STAND_IN(fcntl, int, fd, int, command,
                  command == F_SETLKW ? 0 : Fault("fcntl", Number(command)))
VARIADIC_STAND_IN(ioctl, int, fd, unsigned long, request, Fault("ioctl", Nothing()))
VARIADIC_STAND_IN(open, const char *, path, int, flags, Fault("open", Text(path)))
VARIADIC_STAND_IN(open64, const char *, path, int, flags, Fault("open64", Text(path)))

struct DelayedThread {
  void *(*body)(void *);
  void *argument;
};

static void *RunDelayed(void *argument) {
  const struct DelayedThread thread = *(struct DelayedThread *)argument;
  free(argument);
  SleepMilliseconds(strtol(getenv("OV_THREAD_START_DELAY_MS"), NULL, 10));
  return thread.body(thread.argument);
}

/* The thread sanitizer starts a thread of its own. It alone has no attributes: those of the program
 * come here with some from the sanitizer. */
static bool IsOfTheSanitizer(const pthread_attr_t *attributes) {
#ifdef OV_THREAD_SANITIZER
  return attributes == NULL;
#else
  (void)attributes;
  return false;
#endif
}

int pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*body)(void *),
                   void *argument) {
  const int error = IsOfTheSanitizer(attributes) ? 0 : (int)Fault("pthread_create", Nothing());
  if (error != 0) {
    return error;
  }
  if (getenv("OV_THREAD_START_DELAY_MS") == NULL) {
    return REAL(pthread_create)(thread, attributes, body, argument);
  }
  struct DelayedThread *delayed = malloc(sizeof(*delayed));
  delayed->body = body;
  delayed->argument = argument;
  return REAL(pthread_create)(thread, attributes, RunDelayed, delayed);
}

int pthread_join(pthread_t thread, void **result) {
  const int error = (int)Fault("pthread_join", Nothing());
  if (error != 0) {
    REAL(pthread_detach)(thread); /* nobody else will release it */
    return error;
  }
  return REAL(pthread_join)(thread, result);
}
