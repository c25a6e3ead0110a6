// A collector that reads what comes and throws it away.
//
//   collector udp|tcp PORT
//
// Prints "ready" and then the first line that came, without its line feed. Runs until it is killed.
#include <arpa/inet.h>
#include <netinet/in.h>

#include "bench.h"

// Returns when the peer has closed the connection; a datagram socket has no such end.
static void ReadAll(int source) {
  static int lineSeen = 0;
  static char buffer[65536];
  ssize_t size;
  while ((size = recv(source, buffer, sizeof(buffer) - 1, 0)) > 0) {
    if (!lineSeen) {
      buffer[size] = '\0';
      printf("%.*s\n", (int)strcspn(buffer, "\n"), buffer);
      fflush(stdout);
      lineSeen = 1;
    }
  }
}

int main(int argc, char *argv[]) {
  Require(argc == 3, "usage");
  const int tcp = strcmp(argv[1], "tcp") == 0;
  const struct sockaddr_in address = {.sin_family = AF_INET,
                                      .sin_port = htons((uint16_t)atoi(argv[2])),
                                      .sin_addr.s_addr = htonl(INADDR_LOOPBACK)};
  const int own = socket(AF_INET, tcp ? SOCK_STREAM : SOCK_DGRAM, 0);
  Require(bind(own, (const struct sockaddr *)&address, sizeof(address)) == 0, "bind");
  Require(!tcp || listen(own, 1) == 0, "listen");
  puts("ready");
  fflush(stdout);
  while (!tcp) {
    ReadAll(own);
  }
  while (1) {
    const int connection = accept(own, NULL, NULL);
    ReadAll(connection);
    close(connection);
  }
}
