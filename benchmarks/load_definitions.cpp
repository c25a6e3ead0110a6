// Loads the definitions file as the service does, once, and prints the nanoseconds of
// processor time on standard error.
#include <cstdlib>

#include "base/names_codec.h"
#include "service/event_catalogue.h"
#include "stopwatch.h"

int main() {
  ov::UseUtf8ForNames();
  PrintNanoseconds([] { ov::g_eventCatalogue = ov::loadEventDefinitions(); });
  std::_Exit(ov::g_eventCatalogue.isEmpty() ? EXIT_FAILURE : EXIT_SUCCESS);
}
