#include "output/forwarding.h"

#include "support/support.h"

namespace ov {
namespace {

TEST(ForwardingTest, CopyKeepsTheUdpSocketOpenAfterClose) {
  const UdpCollector collector;
  const std::size_t open = CountOpenDescriptors();
  SharedForwarding shared;
  shared.Change([&](Forwarding &forwarding) {
    forwarding.udpSender.Init(QStringLiteral("127.0.0.1"), collector.Port());
  });
  {
    const Forwarding copy = shared.Get();
    shared.Change([](Forwarding &forwarding) { forwarding.udpSender.Close(); });
    EXPECT_EQ(OutputOf([&] { copy.udpSender.Send(QStringLiteral("x")); }), (Output{"", ""}));
    EXPECT_EQ(collector.Receive(), "x");
    EXPECT_EQ(CountOpenDescriptors(), open + 1);
  }
  EXPECT_EQ(CountOpenDescriptors(), open);
}

TEST(ForwardingTest, GetWaitsForTheEndOfAChange) {
  SharedForwarding shared;
  std::atomic<bool> asks{false};
  std::thread reader;
  shared.Change([&](Forwarding &forwarding) {
    reader = std::thread([&] {
      asks = true;
      EXPECT_EQ(shared.Get().facility, 2);
    });
    while (!asks) {
    }
    forwarding.facility = 1;
    std::this_thread::sleep_for(std::chrono::milliseconds(50));  // the reader would go on
    forwarding.facility = 2;
  });
  reader.join();
}

}  // namespace
}  // namespace ov
