// Delivers lines with one bare call for each.
//
//   send_floor udp|tcp PORT COUNT LINE
//
// Sends LINE (over TCP with a line feed) COUNT times to a collector on the loopback interface and
// prints the processor time that this took, in microseconds.
#include <arpa/inet.h>
#include <err.h>
#include <netinet/in.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <time.h>

int main(int argc, char *argv[]) {
  if (argc != 5) {
    errx(1, "usage");
  }
  const int tcp = strcmp(argv[1], "tcp") == 0;
  const struct sockaddr_in address = {.sin_family = AF_INET,
                                      .sin_port = htons((uint16_t)atoi(argv[2])),
                                      .sin_addr.s_addr = htonl(INADDR_LOOPBACK)};
  const struct sockaddr *destination = (const struct sockaddr *)&address;
  char line[1024];
  const size_t size = (size_t)snprintf(line, sizeof(line), tcp ? "%s\n" : "%s", argv[4]);
  const int connection = socket(AF_INET, tcp ? SOCK_STREAM : SOCK_DGRAM, 0);
  if (tcp && connect(connection, destination, sizeof(address)) != 0) {
    err(1, "connect");
  }
  const clock_t start = clock();
  for (int left = atoi(argv[3]); left > 0; --left) {
    if ((tcp ? send(connection, line, size, 0)
             : sendto(connection, line, size, 0, destination, sizeof(address))) < 0) {
      err(1, "send");
    }
  }
  printf("%ld\n", clock() - start);
}
