// What the service does without monitors, in bare system calls: takes clients in, looks at the
// settings file every second, and at the interfaces and the host's name every three. Ends when
// killed.
#include <err.h>
#include <fcntl.h>
#include <ifaddrs.h>
#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

static void *LookAtHost(void *unused) {
  while (1) {
    struct ifaddrs *interfaces;
    if (getifaddrs(&interfaces) != 0) {
      err(1, "getifaddrs");
    }
    freeifaddrs(interfaces);
    char name[64];
    gethostname(name, sizeof(name));
    sleep(3);
  }
  return unused;
}

int main(void) {
  const struct sockaddr_un address = {.sun_family = AF_UNIX, .sun_path = "/tmp/floor"};
  const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  unlink(address.sun_path);
  if (bind(listener, (const struct sockaddr *)&address, sizeof(address)) != 0 ||
      listen(listener, 10) != 0) {
    err(1, "bind or listen");
  }
  pthread_t thread;
  if (pthread_create(&thread, NULL, LookAtHost, NULL) != 0) {
    err(1, "pthread_create");
  }
  while (1) {
    struct pollfd clients = {.fd = listener, .events = POLLIN};
    if (poll(&clients, 1, 1000) == 0) {
      struct stat settings;
      stat("/tmp/ov-event-logger.ini", &settings);
    }
    int client;
    while ((client = accept4(listener, NULL, NULL, SOCK_CLOEXEC)) >= 0) {
      static const char kFirstLine[] = "> Received event\n";
      static const char kSecondLine[] = "Event [perf01] (95,80) at 1700000000\n";
      char record[144];
      if (read(client, record, sizeof(record)) != sizeof(record) ||
          write(STDOUT_FILENO, kFirstLine, sizeof(kFirstLine) - 1) < 0 ||
          write(STDOUT_FILENO, kSecondLine, sizeof(kSecondLine) - 1) < 0) {
        err(1, "read or write");
      }
      close(client);
    }
  }
}
