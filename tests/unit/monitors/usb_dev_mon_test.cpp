#include "monitors/usb_dev_mon.h"

#include <algorithm>
#include <cstdio>

#include "support/support.h"

namespace ov {
namespace {

// --- Devices -----------------------------------------------------------------------------------

std::string Devices() {
  QStringList devices = UsbDevMon::ReadDevices().values();
  devices.sort();
  return devices.join(QLatin1Char('|')).toStdString();
}

TEST(UsbDevicesTest, DevicesAreTheDistinctLinesThatAreNotEmpty) {
  WritePrintingScript(kUsbScriptPath, "\nusb1\n\n\nusb2\nusb1\nusb3");
  EXPECT_EQ(Devices(), "usb1|usb2|usb3");
}

TEST(UsbDevicesTest, LinesAreNotTrimmed) {
  WritePrintingScript(kUsbScriptPath, " usb1\nusb1 \nusb1\r\nusb1\n \n");
  EXPECT_EQ(Devices(), " | usb1|usb1|usb1\r|usb1 ");
}

TEST(UsbDevicesTest, ScriptIsRunWithoutArguments) {
  WriteScript(kUsbScriptPath, "echo $#");
  EXPECT_EQ(Devices(), "0");
}

// --- Events ------------------------------------------------------------------------------------

struct PollRow : Row {
  std::vector<std::string> polls;  // the first by Init
  Events events;                   // ordered within a poll and an identifier
  bool presentAllowed = true;
  bool addedAllowed = true;
  bool removedAllowed = true;
};

// What the call raises, ordered by the values among those of an identifier.
template <typename Call>
Events RaisedBy(Call call) {
  EXPECT_EQ(OutputOf(call), (Output{"", ""}));
  Events events = TakeEvents();
  EXPECT_TRUE(std::is_sorted(events.begin(), events.end(), [](const auto &one, const auto &other) {
    return one.first < other.first;
  })) << "added before removed";
  std::sort(events.begin(), events.end());
  return events;
}

class UsbPolls : public testing::TestWithParam<PollRow> {};

TEST_P(UsbPolls, RaiseEvents) {
  UsbDevMon monitor(GetParam().presentAllowed, GetParam().addedAllowed, GetParam().removedAllowed);
  Events events;
  for (std::size_t poll = 0; poll < GetParam().polls.size(); ++poll) {
    WritePrintingScript(kUsbScriptPath, GetParam().polls[poll]);
    for (const auto &event : RaisedBy([&] { poll == 0 ? monitor.Init() : monitor.Check(); })) {
      events.push_back(event);
    }
  }
  EXPECT_EQ(events, GetParam().events);
}

const std::string kLong(127, 'x');

const PollRow kUsbPollsRows[] = {
    {"DevicesAtTheStartArePresentAndStaySo",
     {"usb1\nusb2\n", "usb1\nusb2\n"},
     {{"sys05", "usb1"}, {"sys05", "usb2"}}},
    {"NoDeviceAtTheStartIsNotReported", {"", ""}, {}},
    {"OrderRepetitionsAndBlankLinesChangeNothing",
     {"usb1\n\nusb1\nusb2\n", "\nusb2\nusb1\n\nusb2"},
     {{"sys05", "usb1"}, {"sys05", "usb2"}}},
    {"AddedDevicesAreReportedBeforeRemovedOnes",
     {"a\nb\n", "c\nd\n"},
     {{"sys06", "c"}, {"sys06", "d"}, {"sys07", "a"}, {"sys07", "b"}},
     false},
    {"EachPollIsComparedWithTheOneBefore",
     {"usb1", "usb1\nusb2", "usb1", "usb1\nusb2"},
     {{"sys05", "usb1"}, {"sys06", "usb2"}, {"sys07", "usb2"}, {"sys06", "usb2"}}},
    {"LinesAreComparedWhole",
     {"usb1\n", "usb1 \n", "usb1\r\n", "USB1\n"},
     {{"sys06", "usb1 "},
      {"sys07", "usb1"},
      {"sys06", "usb1\r"},
      {"sys07", "usb1 "},
      {"sys06", "USB1"},
      {"sys07", "usb1\r"}},
     false},
    {"PresentDevicesAreKnownThoughTheyMayNotBeReported",
     {"usb1\n", "usb1\nusb2\n"},
     {{"sys06", "usb2"}},
     false},
    {"AddedDevicesAreKnownThoughTheyMayNotBeReported",
     {"usb1", "usb1\nusb2", "usb1\nusb2", "usb1"},
     {{"sys07", "usb2"}},
     false,
     false},
    {"RemovedDevicesAreForgottenThoughTheyMayNotBeReported",
     {"usb1\nusb2", "usb1", "usb1\nusb2"},
     {{"sys06", "usb2"}},
     false,
     true,
     false},
    {"LineIsReportedInUtf8AndCutTo127Bytes",
     {"Gerät " + kLong + "\n"},
     {{"sys05", ("Gerät " + kLong).substr(0, 127)}}},
    {"LinesThatDifferBeyondTheCutAreTwoDevices",
     {kLong + "1\n" + kLong + "2\n"},
     {{"sys05", kLong}, {"sys05", kLong}}}};

INSTANTIATE_TEST_SUITE_P(Rows, UsbPolls, testing::ValuesIn(kUsbPollsRows), OutcomeOf<PollRow>);

TEST(UsbDevMonTest, MissingScriptRemovesAllDevicesUntilItWorksAgain) {
  UsbDevMon monitor(true, true, true);
  WritePrintingScript(kUsbScriptPath, "usb1\n");
  EXPECT_EQ(RaisedBy([&] { monitor.Init(); }), (Events{{"sys05", "usb1"}}));
  std::remove(kUsbScriptPath);
  EXPECT_EQ(RaisedBy([&] { monitor.Check(); }), (Events{{"sys07", "usb1"}}));
  WritePrintingScript(kUsbScriptPath, "usb1\n");
  EXPECT_EQ(RaisedBy([&] { monitor.Check(); }), (Events{{"sys06", "usb1"}}));
}

TEST(UsbDevMonTest, InitReportsAllDevicesAgain) {
  UsbDevMon monitor(true, true, true);
  for (const char *device : {"usb1", "usb2"}) {
    WritePrintingScript(kUsbScriptPath, device);
    EXPECT_EQ(RaisedBy([&] { monitor.Init(); }), (Events{{"sys05", device}}));
  }
  EXPECT_EQ(RaisedBy([&] { monitor.Check(); }), Events());
}

}  // namespace
}  // namespace ov
