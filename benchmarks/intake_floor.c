// The least that taking in an event can cost: accept, read, two short lines, close.
//
//   intake_floor PATH COUNT
//
// Listens on PATH as the service does, takes COUNT connections and prints the processor time, in
// nanoseconds, that its one thread used from the first connection on.
#include <errno.h>
#include <fcntl.h>

#include "bench.h"

enum { kBacklog = 10, kIdleMicroseconds = 100 };  // the idle of short_idle.c

int main(int argc, char *argv[]) {
  Require(argc == 3, "usage");
  const struct sockaddr_un address = LocalAddress(argv[1]);
  const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0);
  Require(bind(listener, (const struct sockaddr *)&address, sizeof(address)) == 0, "bind");
  Require(listen(listener, kBacklog) == 0, "listen");
  const int null = open("/dev/null", O_WRONLY);
  static const char kFirstLine[] = "> Received event\n";
  static const char kSecondLine[] = "Event [perf01] (95,80) at 1700000000\n";

  int64_t start = 0;
  for (int left = atoi(argv[2]); left > 0;) {
    const int connection = accept4(listener, NULL, NULL, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (connection < 0) {
      Require(errno == EAGAIN, "accept");
      usleep(kIdleMicroseconds);
      continue;
    }
    if (start == 0) {
      start = Nanoseconds(CLOCK_THREAD_CPUTIME_ID);
    }
    char record[kRecordSize];
    // A client that has connected but not written yet is waited for, at the cost of another read.
    while (read(connection, record, sizeof(record)) < 0 && errno == EAGAIN) {
    }
    Require(write(null, kFirstLine, sizeof(kFirstLine) - 1) > 0, "write");
    Require(write(null, kSecondLine, sizeof(kSecondLine) - 1) > 0, "write");
    close(connection);
    --left;
  }
  printf("%lld\n", (long long)(Nanoseconds(CLOCK_THREAD_CPUTIME_ID) - start));
  return EXIT_SUCCESS;
}
