#include <sanitizer/common_interface_defs.h>
#include <sys/resource.h>

/* What the thread sanitizer is told to pass over, each with its reason. Linked into the programs,
 * so that it holds wherever they run.
 *
 * The two stop requests are plain variables on purpose. Whoever stops a thread writes while the
 * thread may read, and the join that follows orders everything else. Only a race in which that
 * write (or, in a monitor, the read of the thread's handle beside it) is one of the two accesses is
 * passed over. A processing thread clears its own as it starts, while one of an earlier cycle,
 * whose accept failed, may read it.
 *
 * Qt, which is built without the sanitizer, asks the C library for the local time, and that guards
 * its time zone with a lock of its own, which the sanitizer does not see. */
const char *__tsan_default_suppressions(void);

const char *__tsan_default_suppressions(void) {
  return "race_top:^ov::Monitor::Stop()$\n"
         "race_top:^ov::StopProcessingThread()$\n"
         "race_top:^ProcessingThread$\n"
         "race:^tzset_internal$\n";
}

/* A race to pass over is known by the names of its functions, and for these the sanitizer reads the
 * program's files when it meets its first race. Where few descriptors are allowed they may all be
 * in use by then, so it is made to read them at once. */
static void __attribute__((constructor)) ReadNamesWhileThereAreDescriptors(void) {
  struct rlimit descriptors;
  if (getrlimit(RLIMIT_NOFILE, &descriptors) == 0 && descriptors.rlim_cur <= 64) {
    char name[64];
    __sanitizer_symbolize_pc(__builtin_return_address(0), "%f", name, sizeof name);
  }
}
