#include "service/processing_thread.h"

#include <cerrno>

#include "event/event_queue.h"
#include "output/forwarding.h"
#include "service/event_catalogue.h"
#include "support/support.h"

namespace ov {
namespace {

// With facility 3, over UDP unless a test changes that. Pauses are short.
class ProcessingThreadTest : public testing::Test {
 protected:
  ProcessingThreadTest() {
    g_forwarding.Change([this](Forwarding &forwarding) {
      forwarding.facility = 3;
      forwarding.formatter.SetTemplate(
          QStringLiteral("<[PRI]> [NAME]([IP]) [ID]/[DESC]/[VAL]/[SEV]"));
      forwarding.udpSender.Init(QStringLiteral("127.0.0.1"), udp_.Port());
    });
    TakeSleeps();
  }

  static void ForwardOverTcp(std::int32_t port) {
    g_forwarding.Change([port](Forwarding &forwarding) {
      forwarding.protocol = Protocol::kTcp;
      forwarding.tcpSender.Init(QStringLiteral("127.0.0.1"), port);
    });
  }

  static void Push(const char *id, const char *values) {
    g_eventQueue.Push(MakeEventRecord(id, values));
  }

  // What is printed while the thread lives, which is as long as the action takes.
  template <typename Action>
  Output RunWhile(Action action) {
    return OutputOf([&] {
      EXPECT_EQ(StartProcessingThread(), 0);
      action();
      StopProcessingThread();
    });
  }

  // The pauses of the thread until there are so many.
  static std::vector<unsigned> Pauses(std::size_t count) {
    std::vector<unsigned> pauses;
    EXPECT_TRUE(Eventually([&] {
      for (const unsigned pause : TakeSleeps()) {
        pauses.push_back(pause);
      }
      return pauses.size() >= count;
    }));
    pauses.resize(count);
    return pauses;
  }

  const Temporarily shortSleeps_{g_sleepsAreShort};
  const UdpCollector udp_;
};

TEST_F(ProcessingThreadTest, QueuedEventsArePrintedAfterOneHeadingAndSentInTheirOrder) {
  g_eventCatalogue.Replace(
      {{QStringLiteral("perf01"), {{}, {}, QStringLiteral("high"), QStringLiteral("warn")}}});
  std::string printed = "> Process events\n";
  std::vector<std::string> lines;
  for (const char *values : {"3", "1", "2"}) {
    Push("perf01", values);
    lines.push_back(std::string("<28> tc-0042(127.0.0.1) perf01/high/") + values + "/warn");
    printed += ">>> " + lines.back() + "\n";
  }
  EXPECT_EQ(RunWhile([&] {
              for (const std::string &line : lines) {
                EXPECT_EQ(udp_.Receive(), line);
              }
            }),
            (Output{printed, ""}));
}

TEST_F(ProcessingThreadTest, UndefinedEventIsSentWithAnEmptyDefinitionThatStays) {
  Push("net09", "x");
  RunWhile([this] { EXPECT_EQ(udp_.Receive(), "<24> tc-0042(127.0.0.1) net09//x/"); });
  EXPECT_TRUE(g_eventCatalogue.IsDefined("net09"));
}

TEST_F(ProcessingThreadTest, IdentifierIsLookedUpAsLatin1) {
  g_eventCatalogue.Replace({{QString::fromUtf8("ü"), {{}, {}, QStringLiteral("umlaut"), {}}}});
  Push("\xFC", "x");
  Push("ü", "x");
  RunWhile([this] {
    EXPECT_EQ(udp_.Receive(), "<23> tc-0042(127.0.0.1) \xEF\xBF\xBD/umlaut/x/");
    EXPECT_EQ(udp_.Receive(), "<24> tc-0042(127.0.0.1) ü//x/");
  });
}

TEST_F(ProcessingThreadTest, FirstPassComesBeforeTheFirstPause) {
  const Temporarily endlessSleeps(g_sleepsLast);
  Push("a", "first");
  RunWhile([this] {
    EXPECT_EQ(udp_.Receive(), "<24> tc-0042(127.0.0.1) a//first/");
    g_sleepsLast = 0;
  });
}

TEST_F(ProcessingThreadTest, EmptyQueueGivesOnlyPausesOfThreeSeconds) {
  EXPECT_EQ(RunWhile([] { EXPECT_EQ(Pauses(3), std::vector<unsigned>(3, 3)); }), (Output{"", ""}));
}

TEST_F(ProcessingThreadTest, RefusedBatchIsHeldAndTakesOneConnectionToANewCollector) {
  const TcpCollector tcp;
  ForwardOverTcp(ClosedPort());
  Push("a", "1");
  Push("b", "2");
  const Output output = RunWhile([&] {
    EXPECT_EQ(Pauses(2), std::vector<unsigned>(2, 10));
    ForwardOverTcp(tcp.Port());
    EXPECT_EQ(ReadToEnd(tcp.Accept()),
              "<24> tc-0042(127.0.0.1) a//1/\n<24> tc-0042(127.0.0.1) b//2/\n");
    EXPECT_FALSE(tcp.HasConnection());
  });
  EXPECT_EQ(output.out.find("> Process events"), output.out.rfind("> Process events"));
  EXPECT_EQ(output.err.substr(0, 28), "connect: Connection refused\n");
}

TEST_F(ProcessingThreadTest, StopRightAfterTheStartOfALateThreadIsNotLost) {
  const Temporarily lateThreads(g_threadsStartLate);
  for (int round = 0; round < 10; ++round) {
    RunWhile([] {});
  }
}

TEST_F(ProcessingThreadTest, FailedStartGivesItsError) {
  const Temporarily failing(g_threadStartError, EAGAIN);
  EXPECT_EQ(StartProcessingThread(), EAGAIN);
}

TEST_F(ProcessingThreadTest, FailedJoinIsReported) {
  const std::size_t threads = CountThreads();
  const Temporarily failing(g_threadJoinError, EDEADLK);
  EXPECT_EQ(RunWhile([] {}), (Output{"", "pthread_join: Resource deadlock avoided\n"}));
  EXPECT_TRUE(Eventually([&] { return CountThreads() == threads; }));
}

}  // namespace
}  // namespace ov
