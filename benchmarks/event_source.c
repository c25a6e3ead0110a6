// Raises many events as fast as they are taken in, each on a connection of its own.
//
//   event_source PATH COUNT ID VALUES
#include "bench.h"

struct Record {
  char id[8];
  char values[128];
  int64_t time;
};

_Static_assert(sizeof(struct Record) == kRecordSize, "as the service reads it");

int main(int argc, char *argv[]) {
  Require(argc == 5, "usage");
  const struct sockaddr_un address = LocalAddress(argv[1]);
  struct Record record = {.time = time(NULL)};
  strncpy(record.id, argv[3], sizeof(record.id) - 1);
  strncpy(record.values, argv[4], sizeof(record.values) - 1);
  for (int left = atoi(argv[2]); left > 0; --left) {
    const int connection = socket(AF_UNIX, SOCK_STREAM, 0);
    Require(connect(connection, (const struct sockaddr *)&address, sizeof(address)) == 0,
            "connect");
    Require(write(connection, &record, sizeof(record)) == sizeof(record), "write");
    close(connection);
  }
  return EXIT_SUCCESS;
}
