// The order in which the process-wide objects are constructed. The program this test is linked
// into hands each registration of a destructor to it first (--wrap=__cxa_atexit): an object's
// destructor is registered right after its constructor has run, with the object's address.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "config/settings.h"
#include "output/host_identity.h"
#include "output/message_formatter.h"
#include "output/tcp_syslog_sender.h"
#include "output/udp_syslog_sender.h"
#include "service/event_catalogue.h"
#include "service/event_queue.h"

namespace {

// Filled before main and so without constructors of their own. What does not fit is counted only.
std::array<const void *, 1000> registered;
std::size_t registrations = 0;

}  // namespace

// The names that the linker makes of the wrapped function's.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {
int __real___cxa_atexit(void (*destroy)(void *), void *object, void *library);
int __wrap___cxa_atexit(void (*destroy)(void *), void *object, void *library) {
  if (registrations < registered.size()) {
    registered[registrations] = object;
  }
  ++registrations;
  return __real___cxa_atexit(destroy, object, library);
}
}
// NOLINTEND(bugprone-reserved-identifier)

namespace ov {
namespace {

TEST(ProcessObjectsTest, AreConstructedInTheirOrder) {
  const std::vector<std::pair<const void *, std::string>> names = {
      {&g_eventQueue, "queue"},           {&g_eventCatalogue, "catalogue"},
      {&g_hostAddressText, "address"},    {&g_hostNameText, "name"},
      {&g_messageFormatter, "formatter"}, {&g_settings, "settings"},
      {&g_tcpSyslogSender, "TCP sender"}, {&g_udpSyslogSender, "UDP sender"},
  };
  ASSERT_LE(registrations, registered.size());
  std::vector<std::string> order;
  for (const void *object : registered) {
    for (const auto &[address, name] : names) {
      if (object == address) {
        order.push_back(name);
      }
    }
  }
  EXPECT_THAT(order, testing::ElementsAre("settings", "catalogue", "formatter", "UDP sender",
                                          "TCP sender", "address", "name", "queue"));
}

}  // namespace
}  // namespace ov
