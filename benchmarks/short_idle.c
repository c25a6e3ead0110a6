// Preloaded into the service for the intake measurements only: shortens the second that its accept
// loop sleeps when no client waits, so that a burst is not cut into elevens by the listen backlog.
#include <time.h>
#include <unistd.h>

enum { kServiceIdle = 1000000, kShortIdle = 100 };  // microseconds

int usleep(useconds_t pause) {
  const useconds_t taken = pause == kServiceIdle ? kShortIdle : pause;
  const struct timespec time = {(time_t)(taken / 1000000), (long)(taken % 1000000) * 1000};
  return nanosleep(&time, NULL);
}
