/* Linked into the programs of the build with the address sanitizer. The service ends by a signal,
 * at which nobody looks for leaks; by SIGRTMAX it ends after a look. */
#include <sanitizer/lsan_interface.h>
#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

static void EndAfterALook(int number) {
  (void)number;
  __lsan_do_leak_check(); /* reports on standard error, and ends the process if there are any */
  _exit(EXIT_SUCCESS);
}

__attribute__((constructor)) static void LookForLeaksOnRequest(void) {
  signal(SIGRTMAX, EndAfterALook);
}
