// The least that delivering lines can cost: one bare call for each.
//
//   send_floor udp|tcp PORT COUNT LINE
//
// Sends LINE (over TCP with a line feed) COUNT times to a collector on the loopback interface and
// prints the processor time, in nanoseconds, that its one thread used.
#include <arpa/inet.h>
#include <netinet/in.h>

#include "bench.h"

int main(int argc, char *argv[]) {
  Require(argc == 5, "usage");
  const int tcp = strcmp(argv[1], "tcp") == 0;
  const struct sockaddr_in address = {.sin_family = AF_INET,
                                      .sin_port = htons((uint16_t)atoi(argv[2])),
                                      .sin_addr.s_addr = htonl(INADDR_LOOPBACK)};
  const struct sockaddr *destination = (const struct sockaddr *)&address;
  char line[1024];
  const size_t size = (size_t)snprintf(line, sizeof(line), tcp ? "%s\n" : "%s", argv[4]);
  const int connection = socket(AF_INET, tcp ? SOCK_STREAM : SOCK_DGRAM, 0);
  Require(!tcp || connect(connection, destination, sizeof(address)) == 0, "connect");

  const int64_t start = Nanoseconds(CLOCK_THREAD_CPUTIME_ID);
  for (int left = atoi(argv[3]); left > 0; --left) {
    const ssize_t sent = tcp ? send(connection, line, size, 0)
                             : sendto(connection, line, size, 0, destination, sizeof(address));
    Require(sent >= 0, "send");
  }
  printf("%lld\n", (long long)(Nanoseconds(CLOCK_THREAD_CPUTIME_ID) - start));
  return EXIT_SUCCESS;
}
