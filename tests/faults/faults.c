/* A library for tests to preload: makes chosen calls of the event logger fail, or delays them.
 *
 *   OV_FAULTS=accept4:2:24,bind:1:98   the 2nd call of accept4 fails with error 24, the first of
 *                                      bind with error 98
 *   OV_FAULTS=accept4:2+:24            every call of accept4 from the 2nd on fails
 *   OV_FAULTS=socket@2:1:24            the first call of socket for family 2 fails; see below
 *   OV_FAULTS=accept4>read@socket:1:24
 *                                      the first call of accept4 after one of read on a socket
 *   OV_DELAYS=write:1:500              the first call of write waits 500 ms
 *   OV_FAULTS_LOG=/tmp/log             gets a line NAME:ERROR for each call that fails
 *   OV_THREAD_START_DELAY_MS=500       every new thread waits that long before it runs
 *   OV_LEAK=33                         a block of so many bytes is lost at the start
 *
 * Behind the @ stands the path of the call, or, for read, of its descriptor ("socket" or "pipe" if
 * that has none); the family of a socket; the command of fcntl; the seconds of a sleep. A list has
 * up to 32 elements. If two are about one call, both count it and the first decides.
 *
 * A call of sleep that fails returns at once. The thread of a failed pthread_join goes on. The
 * programs that the event logger starts are left alone. Calls before main do not count. */
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
#include <stdarg.h>
#include <stdatomic.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

/* One element of OV_FAULTS or OV_DELAYS: CALL[>EARLIER]:FIRST[+]:NUMBER. */
struct Entry {
  const char *call; /* NAME or NAME@DETAIL, as is `earlier` */
  const char *earlier;
  long first;
  bool andLater;
  long number;
  atomic_bool armed; /* once `earlier` has been called, or from the start */
  atomic_long calls;
};

/* Each ends with an entry without a call. */
static struct Entry faults[33];
static struct Entry delays[33];
static const char *threadStartDelay;

/* Function pointers from dlsym are what POSIX asks for and ISO C does not know. */
#pragma GCC diagnostic ignored "-Wpedantic"
#define REAL(name) ((__typeof__(&(name)))dlsym(RTLD_NEXT, #name))

static void ReadList(struct Entry *entry, const char *variable) {
  const char *value = getenv(variable);
  char *rest = value == NULL ? NULL : strdup(value);
  for (char *item = strsep(&rest, ","); item != NULL; item = strsep(&rest, ","), ++entry) {
    char *number = strchr(item, ':');
    *number = '\0';
    entry->call = strsep(&item, ">");
    entry->earlier = item;
    entry->armed = item == NULL;
    entry->first = strtol(number + 1, &number, 10);
    entry->andLater = *number == '+';
    entry->number = strtol(number + (entry->andLater ? 2 : 1), NULL, 10);
  }
}

__attribute__((constructor)) static void SetUp(void) {
  unsetenv("LD_PRELOAD");
  /* Frees what a failed search of a sanitizer left: the sanitizer would use another allocator. */
  dlsym(RTLD_DEFAULT, "open");
  const char *leak = getenv("OV_LEAK");
  void *volatile lost = leak == NULL ? NULL : malloc(strtoul(leak, NULL, 10));
  (void)lost;
  threadStartDelay = getenv("OV_THREAD_START_DELAY_MS");
  ReadList(delays, "OV_DELAYS");
  ReadList(faults, "OV_FAULTS");
}

static bool IsOneOf(const char *wanted, const char *name, const char *call) {
  return wanted != NULL && (strcmp(wanted, name) == 0 || strcmp(wanted, call) == 0);
}

static long Lookup(struct Entry *entry, const char *name, const char *call) {
  long number = 0;
  for (; entry->call != NULL; ++entry) {
    if (entry->armed && IsOneOf(entry->call, name, call)) {
      const long count = atomic_fetch_add(&entry->calls, 1) + 1;
      const bool hit = count == entry->first || (entry->andLater && count > entry->first);
      number = number == 0 && hit ? entry->number : number;
    }
    if (IsOneOf(entry->earlier, name, call)) {
      entry->armed = true;
    }
  }
  return number;
}

static void Pause(long milliseconds) {
  const struct timespec pause = {milliseconds / 1000, milliseconds % 1000 * 1000000};
  nanosleep(&pause, NULL);
}

static void Log(const char *name, int error) {
  const char *path = getenv("OV_FAULTS_LOG");
  if (path != NULL) {
    const int log = REAL(open)(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
    dprintf(log, "%s:%d\n", name, error);
    REAL(close)(log);
  }
}

/* Returns the error that this call fails with, or 0, after the delay that it has. The format and
 * what follows make its detail. */
__attribute__((format(printf, 2, 3))) static int Fault(const char *name, const char *format, ...) {
  const int errorBefore = errno;
  char call[PATH_MAX + 64];
  const int length = snprintf(call, sizeof(call), "%s@", name);
  va_list detail;
  va_start(detail, format);
  vsnprintf(call + length, sizeof(call) - (size_t)length, format, detail);
  va_end(detail);
  const long delay = Lookup(delays, name, call);
  const int error = (int)Lookup(faults, name, call);
  if (delay > 0) {
    Pause(delay);
  }
  if (error != 0) {
    Log(name, error);
  }
  errno = errorBefore;
  return error;
}

#define FAIL(error) (errno = (error), -1)

/* Defines a wrapper for a function that reports failure with -1 and errno. */
#define WRAPPER(type, name, parameters, arguments, ...)     \
  type name parameters {                                    \
    const int error = Fault(#name, __VA_ARGS__);            \
    return error != 0 ? FAIL(error) : REAL(name) arguments; \
  }

/* The same for one that takes one more argument for some of its commands. */
#define VARIADIC_WRAPPER(name, firstType, secondType, ...)                 \
  int name(firstType first, secondType second, ...) {                      \
    const int error = Fault(#name, __VA_ARGS__);                           \
    va_list arguments;                                                     \
    va_start(arguments, second);                                           \
    void *argument = va_arg(arguments, void *);                            \
    va_end(arguments);                                                     \
    return error != 0 ? FAIL(error) : REAL(name)(first, second, argument); \
  }

/* Defines a wrapper for a function that returns its error. */
#define RETURNING_WRAPPER(name, parameters, arguments) \
  int name parameters {                                \
    const int error = Fault(#name, "-");               \
    return error != 0 ? error : REAL(name) arguments;  \
  }

/* The path of a descriptor, or its kind where it has none. */
static const char *File(int fd) {
  static _Thread_local char text[PATH_MAX];
  char link[32];
  snprintf(link, sizeof(link), "/proc/self/fd/%d", fd);
  const ssize_t length = readlink(link, text, sizeof(text) - 1);
  text[length < 0 ? 0 : length] = '\0';
  if (text[0] != '/') {
    text[strcspn(text, ":")] = '\0';
  }
  return text;
}

#define ADDRESS const struct sockaddr *address, socklen_t length

WRAPPER(int, socket, (int family, int type, int protocol), (family, type, protocol), "%d", family)
WRAPPER(int, bind, (int fd, ADDRESS), (fd, address, length), "-")
WRAPPER(int, connect, (int fd, ADDRESS), (fd, address, length), "-")
WRAPPER(int, listen, (int fd, int backlog), (fd, backlog), "-")
WRAPPER(int, accept4, (int fd, struct sockaddr *address, socklen_t *length, int flags),
        (fd, address, length, flags), "-")
WRAPPER(ssize_t, read, (int fd, void *bytes, size_t size), (fd, bytes, size), "%s", File(fd))
WRAPPER(ssize_t, write, (int fd, const void *bytes, size_t size), (fd, bytes, size), "-")
WRAPPER(ssize_t, send, (int fd, const void *bytes, size_t size, int flags),
        (fd, bytes, size, flags), "-")
WRAPPER(ssize_t, sendto, (int fd, const void *bytes, size_t size, int flags, ADDRESS),
        (fd, bytes, size, flags, address, length), "-")
WRAPPER(int, poll, (struct pollfd * fds, nfds_t count, int timeout), (fds, count, timeout), "-")
WRAPPER(int, ppoll,
        (struct pollfd * fds, nfds_t count, const struct timespec *timeout, const sigset_t *mask),
        (fds, count, timeout, mask), "-")
WRAPPER(int, access, (const char *path, int mode), (path, mode), "%s", path)
WRAPPER(int, stat, (const char *path, struct stat *status), (path, status), "%s", path)
WRAPPER(int, unlink, (const char *path), (path), "%s", path)
WRAPPER(int, getifaddrs, (struct ifaddrs * *list), (list), "-")
WRAPPER(int, pipe2, (int ends[2], int flags), (ends, flags), "-")
WRAPPER(int, kill, (pid_t pid, int number), (pid, number), "-")
WRAPPER(int, sem_wait, (sem_t * semaphore), (semaphore), "-")
VARIADIC_WRAPPER(fcntl, int, int, "%d", second)
VARIADIC_WRAPPER(open, const char *, int, "%s", first)
VARIADIC_WRAPPER(open64, const char *, int, "%s", first)
RETURNING_WRAPPER(getaddrinfo,
                  (const char *name, const char *service, const struct addrinfo *hints,
                   struct addrinfo **results),
                  (name, service, hints, results))
RETURNING_WRAPPER(getnameinfo,
                  (ADDRESS, char *host, socklen_t hostSize, char *service, socklen_t serviceSize,
                   int flags),
                  (address, length, host, hostSize, service, serviceSize, flags))

/* Qt calls clone and waitid through syscall. Rows name them clone and waitid. */
long syscall(long number, ...) {
  va_list arguments;
  va_start(arguments, number);
  long values[6];
  for (int i = 0; i < 6; ++i) {
    values[i] = va_arg(arguments, long);
  }
  va_end(arguments);
  const char *name = number == SYS_clone ? "clone" : number == SYS_waitid ? "waitid" : "syscall";
  const int error = Fault(name, "%ld", number);
  return error != 0 ? FAIL(error)
                    : REAL(syscall)(number, values[0], values[1], values[2], values[3], values[4],
                                    values[5]);
}

unsigned sleep(unsigned seconds) {
  return Fault("sleep", "%u", seconds) != 0 ? seconds : REAL(sleep)(seconds);
}

struct DelayedThread {
  void *(*body)(void *);
  void *argument;
};

static void *RunDelayed(void *argument) {
  const struct DelayedThread thread = *(struct DelayedThread *)argument;
  free(argument);
  Pause(strtol(threadStartDelay, NULL, 10));
  return thread.body(thread.argument);
}

int pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*body)(void *),
                   void *argument) {
  /* The thread sanitizer starts a thread of its own, which alone has no attributes then. */
  const bool isOurs = attributes != NULL || !OV_THREAD_SANITIZER;
  const int error = isOurs ? Fault("pthread_create", "-") : 0;
  if (error != 0 || threadStartDelay == NULL) {
    return error != 0 ? error : REAL(pthread_create)(thread, attributes, body, argument);
  }
  struct DelayedThread *delayed = malloc(sizeof(*delayed));
  *delayed = (struct DelayedThread){body, argument};
  return REAL(pthread_create)(thread, attributes, RunDelayed, delayed);
}

int pthread_join(pthread_t thread, void **result) {
  const int error = Fault("pthread_join", "-");
  if (error != 0) {
    REAL(pthread_detach)(thread); /* nobody else will release it */
    return error;
  }
  return REAL(pthread_join)(thread, result);
}
