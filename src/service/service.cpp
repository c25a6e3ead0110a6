#include "service/service.h"

#include <linux/close_range.h>
#include <malloc.h>
#include <unistd.h>

#include <cstdio>
#include <limits>

#include "base/names_codec.h"
#include "config/settings.h"
#include "event/event_queue.h"
#include "service/event_catalogue.h"
#include "service/event_intake.h"
#include "service/run_cycle.h"

namespace ov {

void RunService() {
  // One heap for all threads: two threads rarely allocate at the same time, and each further heap
  // would stay resident.
  mallopt(M_ARENA_MAX, 1);
  // Scripts inherit no descriptor that the starter of the service left open.
  close_range(STDERR_FILENO + 1, std::numeric_limits<unsigned>::max(), CLOSE_RANGE_CLOEXEC);
  UseUtf8ForNames();
  std::puts("Starting service...");
  g_eventCatalogue.Replace(loadEventDefinitions());
  EventIntake intake(g_eventCatalogue, g_settings, g_eventQueue);
  while (true) {
    RunCycle(intake);
  }
}

}  // namespace ov
