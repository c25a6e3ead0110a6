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
