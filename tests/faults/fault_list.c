#define _GNU_SOURCE
#include "fault_list.h"

#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <stdatomic.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

struct Text {
  const char *start;
  size_t length;
};

/* NAME[@DETAIL] */
struct Kind {
  struct Text name;
  struct Text detail;
};

/* One element of OV_FAULTS or OV_DELAYS: KIND[>EARLIER KIND]:CALL[+]:NUMBER. */
struct Entry {
  struct Kind kind;
  struct Kind earlier;
  long call;
  bool andLater;
  long number;
  atomic_bool armed; /* once EARLIER has been called, or from the start */
  atomic_long calls;
};

struct List {
  struct Entry entries[32];
  int count;
};

static struct List faults;
static struct List delays;

static struct Text Take(const char **rest, const char *stops) {
  const struct Text text = {*rest, strcspn(*rest, stops)};
  *rest += text.length;
  return text;
}

static struct Kind TakeKind(const char **rest) {
  struct Kind kind = {Take(rest, "@>:"), {NULL, 0}};
  if (**rest == '@') {
    ++*rest;
    kind.detail = Take(rest, ">:");
  }
  return kind;
}

static long TakeNumber(const char **rest) {
  char *end = NULL;
  const long number = strtol(*rest + 1, &end, 10);
  *rest = end;
  return number;
}

static void ReadList(struct List *list, const char *rest) {
  const int most = (int)(sizeof(list->entries) / sizeof(list->entries[0]));
  while (rest != NULL && *rest != '\0' && list->count < most) {
    struct Entry *entry = &list->entries[list->count++];
    entry->kind = TakeKind(&rest);
    entry->armed = *rest != '>';
    if (!entry->armed) {
      ++rest;
      entry->earlier = TakeKind(&rest);
    }
    entry->call = TakeNumber(&rest);
    entry->andLater = *rest == '+';
    rest += entry->andLater ? 1 : 0;
    entry->number = TakeNumber(&rest);
    rest += *rest == ',' ? 1 : 0;
  }
}

static void ReadLists(void) {
  ReadList(&faults, getenv("OV_FAULTS"));
  ReadList(&delays, getenv("OV_DELAYS"));
}

static bool Equal(struct Text text, const char *other) {
  return strlen(other) == text.length && strncmp(text.start, other, text.length) == 0;
}

static bool IsOf(struct Kind kind, const char *name, struct Detail detail) {
  if (kind.name.start == NULL || !Equal(kind.name, name)) {
    return false;
  }
  if (kind.detail.start == NULL) {
    return true;
  }
  return detail.text != NULL ? Equal(kind.detail, detail.text)
                             : strtol(kind.detail.start, NULL, 10) == detail.number;
}

/* Every entry counts the calls that it is about; the first that is about this one decides. */
static long Lookup(struct List *list, const char *name, struct Detail detail) {
  long number = 0;
  for (struct Entry *entry = list->entries; entry != list->entries + list->count; ++entry) {
    if (entry->armed && IsOf(entry->kind, name, detail)) {
      const long call = atomic_fetch_add(&entry->calls, 1) + 1;
      const bool hit = call == entry->call || (entry->andLater && call > entry->call);
      number = number == 0 && hit ? entry->number : number;
    }
    if (IsOf(entry->earlier, name, detail)) {
      entry->armed = true;
    }
  }
  return number;
}

/* By system calls only, as it may be one of these functions that fails. */
static void Note(const char *name, long number) {
  const char *path = getenv("OV_FAULTS_LOG");
  if (path == NULL) {
    return;
  }
  char line[64];
  const int length = snprintf(line, sizeof(line), "%s:%ld\n", name, number);
  const long log =
      syscall(SYS_openat, AT_FDCWD, path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
  syscall(SYS_write, log, line, length);
  syscall(SYS_close, log);
}

void SleepMilliseconds(long milliseconds) {
  const struct timespec pause = {milliseconds / 1000, milliseconds % 1000 * 1000000};
  nanosleep(&pause, NULL);
}

long Fault(const char *name, struct Detail detail) {
  if (environ == NULL) {
    return 0; /* the program is still being put together */
  }
  const int errorBefore = errno;
  static pthread_once_t once = PTHREAD_ONCE_INIT;
  pthread_once(&once, ReadLists);
  const long delay = Lookup(&delays, name, detail);
  const long number = Lookup(&faults, name, detail); /* counted before the pause, as by `delays` */
  if (delay > 0) {
    SleepMilliseconds(delay);
  }
  if (number != 0) {
    Note(name, number);
  }
  errno = errorBefore;
  return number;
}
