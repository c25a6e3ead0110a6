// Raises events as fast as they are taken in, each on a connection of its own.
//
//   event_source PATH COUNT ID VALUES
#include <err.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

int main(int argc, char *argv[]) {
  if (argc != 5) {
    errx(1, "usage");
  }
  struct sockaddr_un address = {.sun_family = AF_UNIX};
  strncpy(address.sun_path, argv[1], sizeof(address.sun_path) - 1);
  struct {
    char id[8];
    char values[128];
    int64_t time;
  } record = {.time = time(NULL)};
  strncpy(record.id, argv[3], sizeof(record.id) - 1);
  strncpy(record.values, argv[4], sizeof(record.values) - 1);
  for (int left = atoi(argv[2]); left > 0; --left) {
    const int connection = socket(AF_UNIX, SOCK_STREAM, 0);
    if (connect(connection, (const struct sockaddr *)&address, sizeof(address)) != 0 ||
        write(connection, &record, sizeof(record)) != sizeof(record)) {
      err(1, "connect or write");
    }
    close(connection);
  }
}
