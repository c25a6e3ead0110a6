// What the small C programs of this folder share: giving up, and the time a thread has used.
#pragma once

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

enum { kRecordSize = 144 };  // bytes

static inline void Require(int holds, const char *what) {
  if (!holds) {
    perror(what);
    exit(EXIT_FAILURE);
  }
}

static inline int64_t Nanoseconds(clockid_t clock) {
  struct timespec now;
  clock_gettime(clock, &now);
  return (int64_t)now.tv_sec * 1000000000 + now.tv_nsec;
}

static inline struct sockaddr_un LocalAddress(const char *path) {
  struct sockaddr_un address = {.sun_family = AF_UNIX};
  strncpy(address.sun_path, path, sizeof(address.sun_path) - 1);
  return address;
}
