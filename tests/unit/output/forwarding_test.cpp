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

TEST(ForwardingTest, CopyKeepsItsValuesWhenTheForwardingChanges) {
  SharedForwarding shared;
  shared.Change([](Forwarding &forwarding) {
    forwarding.facility = 16;
    forwarding.formatter.SetTemplate(QStringLiteral("old"));
  });
  const Forwarding copy = shared.Get();
  shared.Change([](Forwarding &forwarding) {
    forwarding.facility = 3;
    forwarding.protocol = Protocol::kTcp;
    forwarding.formatter.SetTemplate(QStringLiteral("new"));
  });
  EXPECT_EQ(copy.facility, 16);
  EXPECT_EQ(copy.protocol, Protocol::kUdp);
  EXPECT_EQ(copy.formatter.Render({}).toStdString(), "old");
  EXPECT_EQ(shared.Get().formatter.Render({}).toStdString(), "new");
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

TEST(ForwardingTest, ChangesDoNotOverlap) {
  constexpr int kChanges = 20'000;
  SharedForwarding shared;
  const auto count = [&] {
    for (int change = 0; change < kChanges; ++change) {
      shared.Change([](Forwarding &forwarding) { ++forwarding.facility; });
    }
  };
  std::thread other(count);
  count();
  other.join();
  EXPECT_EQ(shared.Get().facility, 2 * kChanges);
}

}  // namespace
}  // namespace ov
