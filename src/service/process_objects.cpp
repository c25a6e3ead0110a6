// Every process-wide object. They are constructed in the order in which they stand here, before
// main, and destroyed in the reverse order when the process ends: the settings, which others read,
// come first and go last; the queue, which others feed, comes last and goes first. Nothing else in
// the program has a constructor at namespace scope.
#include "config/settings.h"
#include "event/event_queue.h"
#include "output/forwarding.h"
#include "service/event_catalogue.h"

namespace ov {

Settings g_settings;
EventCatalogue g_eventCatalogue;
SharedForwarding g_forwarding;
EventQueue g_eventQueue;

}  // namespace ov
