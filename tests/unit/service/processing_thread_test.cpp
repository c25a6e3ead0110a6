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
    g_messageFormatter.SetTemplate(QStringLiteral("<[PRI]> [NAME]([IP]) [ID]/[DESC]/[VAL]/[SEV]"));
    g_udpSyslogSender.Init(QStringLiteral("127.0.0.1"), collector_.Port());
  }

  // One pass and its pause.
  static Output RunOnce() {
    return OutputOf([] {
      EXPECT_EQ(StartProcessingThread(), 0);
      StopProcessingThread();
    });
  }

  UdpCollector collector_;
};

TEST_F(ProcessingThreadTest, EmptyQueuePrintsNothing) { EXPECT_EQ(RunOnce(), (Output{"", ""})); }

TEST_F(ProcessingThreadTest, QueuedEventsArePrintedInTheirOrderAfterOneHeading) {
  g_eventCatalogue.insert(QStringLiteral("perf01"),
                          {{}, {}, QStringLiteral("high"), QStringLiteral("warn")});
  for (const char *values : {"1", "2", "3"}) {
    g_eventQueue.Push(MakeEventRecord("perf01", values));
  }
  EXPECT_EQ(RunOnce(), (Output{"> Process events\n"
                               ">>> <28> tc-0042(127.0.0.1) perf01/high/1/warn\n"
                               ">>> <28> tc-0042(127.0.0.1) perf01/high/2/warn\n"
                               ">>> <28> tc-0042(127.0.0.1) perf01/high/3/warn\n",
                               ""}));
}

TEST_F(ProcessingThreadTest, UndefinedEventIsSentWithAnEmptyDefinition) {
  g_eventQueue.Push(MakeEventRecord("net09", "x"));
  RunOnce();
  EXPECT_EQ(collector_.Receive(), "<24> tc-0042(127.0.0.1) net09//x/");
}

TEST_F(ProcessingThreadTest, UndefinedEventIsDefinedFromThenOn) {
  g_eventQueue.Push(MakeEventRecord("net09", "x"));
  RunOnce();
  EXPECT_EQ(g_eventCatalogue.keys(), QStringList{QStringLiteral("net09")});
}

}  // namespace
}  // namespace ov
