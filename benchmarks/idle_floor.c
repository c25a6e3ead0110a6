// Idles as the service does, in bare system calls: a look at a socket and at a file every second, a
// look at the interfaces and the host's name every three. With a folder of scripts, also as the
// monitors do: programs are run every three and five seconds, each behind a pipe. Ends when killed.
#include <fcntl.h>
#include <ifaddrs.h>
#include <poll.h>
#include <pthread.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>

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

static void Run(const char *program, const char *argument) {
  int output[2];
  Require(pipe2(output, O_CLOEXEC) == 0, "pipe2");
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
  char *const arguments[] = {(char *)program, (char *)argument, NULL};
  pid_t child = 0;
  Require(posix_spawnp(&child, program, &actions, NULL, arguments, environ) == 0, "posix_spawnp");
  posix_spawn_file_actions_destroy(&actions);
  close(output[1]);
  char text[64];
  struct pollfd readable = {.fd = output[0], .events = POLLIN};
  while (poll(&readable, 1, 30000) > 0 && read(output[0], text, sizeof(text)) > 0) {
  }
  waitpid(child, NULL, 0);
  close(output[0]);
}

static void *LookAtDevices(void *script) {
  while (1) {
    Run(script, NULL);
    sleep(3);
  }
  return NULL;
}

static void *LookForProcess(void *unused) {
  (void)unused;
  while (1) {
    Run("pgrep", "horizon-client");
    sleep(3);
  }
  return NULL;
}

static void *LookAtStatus(void *unused) {
  (void)unused;
  while (1) {
    struct stat status;
    stat("/tmp/ovwsagentstatus", &status);
    sleep(5);
  }
  return NULL;
}

static void *LookAtLoad(void *script) {
  while (1) {
    Run(script, NULL);
    sleep(5);
  }
  return NULL;
}

static void Start(void *(*body)(void *), void *argument) {
  pthread_t thread;
  Require(pthread_create(&thread, NULL, body, argument) == 0, "pthread_create");
}

int main(int argc, char *argv[]) {
  Require(argc == 3 || argc == 4, "idle_floor SOCKET FILE [SCRIPTS]");
  const struct sockaddr_un address = LocalAddress(argv[1]);
  const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  Require(bind(listener, (const struct sockaddr *)&address, sizeof(address)) == 0, "bind");
  Require(listen(listener, 10) == 0, "listen");
  Start(LookAtHost, NULL);
  if (argc == 4) {
    Require(chdir(argv[3]) == 0, "chdir");
    Start(LookAtDevices, "./usb-devices.sh");
    Start(LookForProcess, NULL);
    Start(LookAtStatus, NULL);
    Start(LookAtLoad, "./perf.sh");
  }
  while (1) {
    struct stat status;
    accept4(listener, NULL, NULL, SOCK_CLOEXEC);
    stat(argv[2], &status);
    usleep(1000000);
  }
}
