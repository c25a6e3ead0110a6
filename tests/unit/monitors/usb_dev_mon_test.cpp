#include "monitors/usb_dev_mon.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <string>
#include <string_view>

#include "monitors/script_runner.h"
#include "support/events.h"
#include "support/files.h"
#include "support/output.h"
#include "support/polling.h"
#include "support/programs.h"

namespace ov {
namespace {

using testing::Pair;
using testing::UnorderedElementsAre;

class UsbDevMonTest : public testing::Test {
 protected:
  UsbDevMonTest() { TakeEvents(); }

  static void Plug(std::string_view lines) { WritePrintingScript(kUsbScriptPath, lines); }

  // What each raises when the script prints these lines.
  static Events InitWith(UsbDevMon &monitor, std::string_view lines) {
    Plug(lines);
    monitor.Init();
    return TakeEvents();
  }

  static Events CheckWith(UsbDevMon &monitor, std::string_view lines) {
    Plug(lines);
    monitor.Check();
    return TakeEvents();
  }

  const Events kNone;
  UsbDevMon monitor_{true, true, true};
};

TEST_F(UsbDevMonTest, HasItsNameAndPeriod) {
  EXPECT_EQ(monitor_.Name(), QStringLiteral("USB Device Monitor"));
  EXPECT_EQ(monitor_.Period(), 3);
}

TEST_F(UsbDevMonTest, DevicesAreTheDistinctLinesThatAreNotBlank) {
  Plug("\nusb1\n\n\nusb2\nusb1\nusb3");
  EXPECT_EQ(UsbDevMon::ReadDevices(), (QSet<QString>{QStringLiteral("usb1"), QStringLiteral("usb2"),
                                                     QStringLiteral("usb3")}));
}

TEST_F(UsbDevMonTest, LinesAreNotTrimmed) {
  Plug(" usb1\nusb1 \nusb1\r\nusb1\n \n");
  EXPECT_EQ(UsbDevMon::ReadDevices(),
            (QSet<QString>{QStringLiteral(" usb1"), QStringLiteral("usb1 "),
                           QStringLiteral("usb1\r"), QStringLiteral("usb1"), QStringLiteral(" ")}));
}

TEST_F(UsbDevMonTest, ScriptIsRunWithoutArguments) {
  WriteScript(kUsbScriptPath, "echo $#");
  EXPECT_EQ(UsbDevMon::ReadDevices(), QSet<QString>{QStringLiteral("0")});
}

TEST_F(UsbDevMonTest, SilentOrMissingScriptMeansNoDevices) {
  Plug("");
  EXPECT_EQ(UsbDevMon::ReadDevices(), QSet<QString>());
  std::remove(kUsbScriptPath);
  EXPECT_EQ(UsbDevMon::ReadDevices(), QSet<QString>());
}

TEST_F(UsbDevMonTest, DevicesAtTheStartAreReportedAsPresent) {
  EXPECT_THAT(InitWith(monitor_, "usb1\nusb2\n"),
              UnorderedElementsAre(Pair("sys05", "usb1"), Pair("sys05", "usb2")));
}

TEST_F(UsbDevMonTest, RepeatedDeviceIsReportedOnce) {
  EXPECT_EQ(InitWith(monitor_, "usb1\n\nusb1\nusb1\n"), (Events{{"sys05", "usb1"}}));
}

TEST_F(UsbDevMonTest, InitReportsAllDevicesAgain) {
  InitWith(monitor_, "usb1\nusb2\n");
  EXPECT_EQ(InitWith(monitor_, "usb1\n"), (Events{{"sys05", "usb1"}}));
  EXPECT_EQ(CheckWith(monitor_, "usb1\n"), kNone);
}

TEST_F(UsbDevMonTest, DevicesThatStayAreNotReportedAgain) {
  InitWith(monitor_, "usb1\nusb2\n");
  EXPECT_EQ(CheckWith(monitor_, "usb1\nusb2\n"), kNone);
}

TEST_F(UsbDevMonTest, OrderRepetitionsAndBlankLinesChangeNothing) {
  InitWith(monitor_, "usb1\nusb2\n");
  EXPECT_EQ(CheckWith(monitor_, "\nusb2\nusb1\n\nusb2"), kNone);
}

TEST_F(UsbDevMonTest, AddedDeviceIsReportedBeforeTheRemovedOne) {
  InitWith(monitor_, "usb1\nusb2\n");
  EXPECT_EQ(CheckWith(monitor_, "usb1\nusb3\n"), (Events{{"sys06", "usb3"}, {"sys07", "usb2"}}));
}

TEST_F(UsbDevMonTest, AllAddedDevicesComeBeforeTheRemovedOnes) {
  InitWith(monitor_, "a\nb\nc\n");
  const Events events = CheckWith(monitor_, "d\ne\nf\n");
  ASSERT_EQ(events.size(), 6U);
  const auto middle = events.begin() + 3;
  EXPECT_THAT(Events(events.begin(), middle),
              UnorderedElementsAre(Pair("sys06", "d"), Pair("sys06", "e"), Pair("sys06", "f")));
  EXPECT_THAT(Events(middle, events.end()),
              UnorderedElementsAre(Pair("sys07", "a"), Pair("sys07", "b"), Pair("sys07", "c")));
}

TEST_F(UsbDevMonTest, EachPollIsComparedWithTheOneBefore) {
  InitWith(monitor_, "usb1\n");
  EXPECT_EQ(CheckWith(monitor_, "usb1\nusb2\n"), (Events{{"sys06", "usb2"}}));
  EXPECT_EQ(CheckWith(monitor_, "usb1\n"), (Events{{"sys07", "usb2"}}));
  EXPECT_EQ(CheckWith(monitor_, "usb1\nusb2\n"), (Events{{"sys06", "usb2"}}));
}

TEST_F(UsbDevMonTest, LinesAreComparedWhole) {
  InitWith(monitor_, "usb1\n");
  EXPECT_EQ(CheckWith(monitor_, "usb1 \n"), (Events{{"sys06", "usb1 "}, {"sys07", "usb1"}}));
  EXPECT_EQ(CheckWith(monitor_, "usb1\r\n"), (Events{{"sys06", "usb1\r"}, {"sys07", "usb1 "}}));
  EXPECT_EQ(CheckWith(monitor_, "USB1\n"), (Events{{"sys06", "USB1"}, {"sys07", "usb1\r"}}));
}

TEST_F(UsbDevMonTest, FailingScriptRemovesAllDevicesUntilItWorksAgain) {
  InitWith(monitor_, "usb1\n");
  std::remove(kUsbScriptPath);
  monitor_.Check();
  EXPECT_EQ(TakeEvents(), (Events{{"sys07", "usb1"}}));
  EXPECT_EQ(CheckWith(monitor_, "usb1\n"), (Events{{"sys06", "usb1"}}));
}

TEST_F(UsbDevMonTest, NothingIsReportedAtTheStartWithoutDevices) {
  EXPECT_EQ(InitWith(monitor_, ""), kNone);
}

TEST_F(UsbDevMonTest, PresentDevicesAreKnownThoughTheyMayNotBeReported) {
  UsbDevMon monitor(false, true, true);
  EXPECT_EQ(InitWith(monitor, "usb1\n"), kNone);
  EXPECT_EQ(CheckWith(monitor, "usb1\nusb2\n"), (Events{{"sys06", "usb2"}}));
}

TEST_F(UsbDevMonTest, AddedDevicesAreKnownThoughTheyMayNotBeReported) {
  UsbDevMon monitor(true, false, true);
  InitWith(monitor, "usb1\n");
  EXPECT_EQ(CheckWith(monitor, "usb1\nusb2\n"), kNone);
  EXPECT_EQ(CheckWith(monitor, "usb1\n"), (Events{{"sys07", "usb2"}}));
}

TEST_F(UsbDevMonTest, RemovedDevicesAreForgottenThoughTheyMayNotBeReported) {
  UsbDevMon monitor(true, true, false);
  InitWith(monitor, "usb1\nusb2\n");
  EXPECT_EQ(CheckWith(monitor, "usb1\n"), kNone);
  EXPECT_EQ(CheckWith(monitor, "usb1\nusb2\n"), (Events{{"sys06", "usb2"}}));
}

TEST_F(UsbDevMonTest, SetIsReplacedThoughNothingMayBeReported) {
  UsbDevMon monitor(true, false, false);
  InitWith(monitor, "usb1\n");
  EXPECT_EQ(CheckWith(monitor, "usb2\n"), kNone);
  EXPECT_EQ(CheckWith(monitor, "usb1\n"), kNone);
}

TEST_F(UsbDevMonTest, LineIsReportedInUtf8AndCutTo127Bytes) {
  const std::string line = "Gerät " + std::string(130, 'x');
  EXPECT_EQ(InitWith(monitor_, line + "\n"), (Events{{"sys05", line.substr(0, 127)}}));
}

TEST_F(UsbDevMonTest, LinesThatDifferOnlyBeyondTheCutAreTwoDevices) {
  const std::string line(127, 'x');
  EXPECT_EQ(InitWith(monitor_, line + "1\n" + line + "2\n"),
            (Events{{"sys05", line}, {"sys05", line}}));
}

TEST_F(UsbDevMonTest, HundredsOfDevicesAreReported) {
  std::string lines;
  for (int device = 0; device < 500; ++device) {
    lines += "usb" + std::to_string(device) + "\n";
  }
  EXPECT_EQ(InitWith(monitor_, lines).size(), 500U);
  EXPECT_EQ(CheckWith(monitor_, lines + "new\n"), (Events{{"sys06", "new"}}));
}

TEST_F(UsbDevMonTest, NothingIsPrintedForAnEvent) {
  EXPECT_EQ(OutputOf([this] { InitWith(monitor_, "usb1\n"); }), (Output{"", ""}));
}

// Once it runs, the script's output is replaced by another file, never written to.
TEST_F(UsbDevMonTest, StartedMonitorReportsThePresentAndThenTheAddedDevices) {
  const std::string output = std::string(kUsbScriptPath) + ".output";
  WriteFile("/usr/lib/orvan/later", "usb1\nusb2\n");
  Plug("usb1\n");
  monitor_.Start();
  Events events;
  const auto raised = [&] { return !(events = TakeEvents()).empty(); };
  EXPECT_TRUE(Eventually(raised));
  EXPECT_EQ(events, (Events{{"sys05", "usb1"}}));
  ASSERT_EQ(std::rename("/usr/lib/orvan/later", output.c_str()), 0);
  EXPECT_TRUE(Eventually(raised));
  EXPECT_EQ(events, (Events{{"sys06", "usb2"}}));
}

// Waits for the half minute that a script may take.
TEST(UsbDevMonLongTest, DevicesThatASlowScriptHasPrintedSoFarAreReported) {
  TakeEvents();
  WriteScript(kUsbScriptPath, "echo usb1; sleep 100; echo usb2");
  UsbDevMon monitor(true, true, true);
  EXPECT_GE(TimeOf([&] { monitor.Init(); }), kScriptTimeout);
  EXPECT_EQ(TakeEvents(), (Events{{"sys05", "usb1"}}));
}

}  // namespace
}  // namespace ov
