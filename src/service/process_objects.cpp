// Every process-wide object. They are constructed in this order before main, and destroyed in the
// reverse order when the process ends. The settings are constructed first, since others read them;
// the queue is constructed last, since others feed it. Nothing else in the program has a
// constructor at namespace scope.
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
