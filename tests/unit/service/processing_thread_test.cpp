#include "service/processing_thread.h"

#include <gtest/gtest.h>

#include <string>

#include "config/settings.h"
#include "output/message_formatter.h"
#include "output/udp_syslog_sender.h"
#include "service/event_catalogue.h"
#include "service/event_queue.h"
#include "support/collectors.h"
#include "support/output.h"

namespace ov {
namespace {

// With the default settings: facility 3, over UDP.
class ProcessingThreadTest : public testing::Test {
 protected:
  ProcessingThreadTest() {
    g_eventCatalogue.clear();
    g_eventQueue.TakeAll();
    g_messageFormatter.SetTemplate(QStringLiteral("<[PRI]> [NAME]([IP]) [ID]/[DESC]/[VAL]/[SEV]"));
    g_udpSyslogSender.Init(QStringLiteral("127.0.0.1"), collector_.Port());
  }

  void Push(const char *id, const char *values) {
    g_eventQueue.Push(MakeEventRecord(id, values));
    ++pushed_;
  }

  // Runs the thread until it has sent what was pushed, and returns that, each line with a line feed
  // for its end. Takes the pause of a pass.
  std::string Sent() {
    std::string lines;
    EXPECT_EQ(StartProcessingThread(), 0);
    for (; pushed_ > 0; --pushed_) {
      lines += collector_.Receive().value_or("(nothing)") + "\n";
    }
    StopProcessingThread();
    return lines;
  }

 private:
  UdpCollector collector_;
  int pushed_ = 0;
};

TEST_F(ProcessingThreadTest, QueuedEventsAreSentInTheirOrder) {
  g_eventCatalogue.insert(QStringLiteral("perf01"),
                          {{}, {}, QStringLiteral("high"), QStringLiteral("warn")});
  for (const char *values : {"3", "1", "2"}) {
    Push("perf01", values);
  }
  EXPECT_EQ(Sent(),
            "<28> tc-0042(127.0.0.1) perf01/high/3/warn\n"
            "<28> tc-0042(127.0.0.1) perf01/high/1/warn\n"
            "<28> tc-0042(127.0.0.1) perf01/high/2/warn\n");
}

TEST_F(ProcessingThreadTest, QueuedEventsArePrintedAfterOneHeading) {
  Push("a", "1");
  Push("b", "2");
  EXPECT_EQ(OutputOf([this] { Sent(); }), (Output{"> Process events\n"
                                                  ">>> <24> tc-0042(127.0.0.1) a//1/\n"
                                                  ">>> <24> tc-0042(127.0.0.1) b//2/\n",
                                                  ""}));
}

TEST_F(ProcessingThreadTest, UndefinedEventIsSentWithAnEmptyDefinition) {
  Push("net09", "x");
  EXPECT_EQ(Sent(), "<24> tc-0042(127.0.0.1) net09//x/\n");
}

TEST_F(ProcessingThreadTest, UndefinedEventIsDefinedFromThenOn) {
  Push("net09", "x");
  Sent();
  EXPECT_EQ(g_eventCatalogue.keys(), QStringList{QStringLiteral("net09")});
}

TEST_F(ProcessingThreadTest, SecondThreadSendsWhatTheFirstLeft) {
  Push("net08", "x");
  Sent();
  Push("net09", "x");
  EXPECT_EQ(Sent(), "<24> tc-0042(127.0.0.1) net09//x/\n");
}

}  // namespace
}  // namespace ov
