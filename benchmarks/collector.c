// A collector that reads what comes and throws it away.
//
//   collector udp|tcp PORT
//
// Prints "ready" and then the first line that came. Runs until it is killed.
#include <arpa/inet.h>
#include <err.h>
#include <netinet/in.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

int main(int argc, char *argv[]) {
  if (argc != 3) {
    errx(1, "usage");
  }
  const int tcp = strcmp(argv[1], "tcp") == 0;
  const struct sockaddr_in address = {.sin_family = AF_INET,
                                      .sin_port = htons((uint16_t)atoi(argv[2])),
                                      .sin_addr.s_addr = htonl(INADDR_LOOPBACK)};
  const int own = socket(AF_INET, tcp ? SOCK_STREAM : SOCK_DGRAM, 0);
  // The port may have been used a moment ago.
  const int on = 1;
  setsockopt(own, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
  if (bind(own, (const struct sockaddr *)&address, sizeof(address)) != 0 ||
      (tcp && listen(own, 1) != 0)) {
    err(1, "bind or listen");
  }
  setvbuf(stdout, NULL, _IOLBF, 0);
  puts("ready");
  for (int lineSeen = 0;;) {
    const int source = tcp ? accept(own, NULL, NULL) : own;
    static char buffer[65536];
    ssize_t size;
    while ((size = recv(source, buffer, sizeof(buffer) - 1, 0)) > 0) {
      if (!lineSeen) {
        printf("%.*s\n", (int)strcspn(buffer, "\n"), buffer);
        lineSeen = 1;
      }
    }
    if (tcp) {
      close(source);
    }
  }
}
