// Idles as the service does without monitors, in bare system calls: a look at a socket and at a
// file every second, a look at the interfaces and the host's name every three. Ends when killed.
#include <ifaddrs.h>
#include <pthread.h>
#include <sys/stat.h>

#include "bench.h"

static void *LookAtHost(void *unused) {
  (void)unused;
  while (1) {
    struct ifaddrs *interfaces = NULL;
    Require(getifaddrs(&interfaces) == 0, "getifaddrs");
    freeifaddrs(interfaces);
    char name[64];
    gethostname(name, sizeof(name));
    sleep(3);
  }
  return NULL;
}

int main(int argc, char *argv[]) {
  Require(argc == 3, "idle_floor SOCKET FILE");
  const struct sockaddr_un address = LocalAddress(argv[1]);
  const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0);
  Require(bind(listener, (const struct sockaddr *)&address, sizeof(address)) == 0, "bind");
  Require(listen(listener, 10) == 0, "listen");
  pthread_t thread;
  Require(pthread_create(&thread, NULL, LookAtHost, NULL) == 0, "pthread_create");
  while (1) {
    struct stat status;
    accept4(listener, NULL, NULL, SOCK_CLOEXEC);
    stat(argv[2], &status);
    usleep(1000000);
  }
}
