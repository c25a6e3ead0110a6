#include "monitors/usb_dev_mon.h"

#include <algorithm>
#include <cstdio>

#include "support/support.h"

namespace ov {
namespace {

TEST(UsbDevMonTest, DevicesAreTheDistinctLinesAsTheyAreThatAreNotEmpty) {
  WriteScript(kUsbScriptPath, "printf '\\n usb1\\n\\nusb1 \\n%s\\n%s\\r\\n%s\\n ' $# $# $#");
  QStringList devices = UsbDevMon::ReadDevices().values();
  devices.sort();
  EXPECT_EQ(devices.join(QLatin1Char('|')).toStdString(), " | usb1|0|0\r|usb1 ");
}

// What the call raises, each with a bar before it, in alphabetical order.
template <typename Call>
std::string RaisedBy(Call call) {
  EXPECT_EQ(OutputOf(call), (Output{"", ""}));
  QStringList events = QString::fromStdString(TakeEvents()).split(QLatin1Char('|'));
  EXPECT_TRUE(std::is_partitioned(events.begin(), events.end(), [](const QString &event) {
    return !event.isEmpty() && !event.startsWith(QLatin1String("sys07"));
  })) << "a device is removed before one is added";
  events.sort();
  return events.join(QLatin1Char('|')).toStdString();
}

struct PollRow : Row {
  std::string polls;  // the first by Init
  std::string events;
  bool presentAllowed = true;
  bool addedAllowed = true;
  bool removedAllowed = true;
};

class UsbPolls : public testing::TestWithParam<PollRow> {};

TEST_P(UsbPolls, RaiseEvents) {
  UsbDevMon monitor(GetParam().presentAllowed, GetParam().addedAllowed, GetParam().removedAllowed);
  std::string events;
  bool isFirst = true;
  for (const std::string &output : Parts(GetParam().polls)) {
    WritePrintingScript(kUsbScriptPath, output);
    events += RaisedBy([&] { isFirst ? monitor.Init() : monitor.Check(); });
    isFirst = false;
  }
  EXPECT_EQ(events, GetParam().events);
}

const std::string kLong(127, 'x');

const PollRow kPolls[] = {
    {"DevicesAtTheStartArePresentAndStaySo", "usb1\nusb2\n|usb1\nusb2\n", "|sys05 usb1|sys05 usb2"},
    {"NoDeviceAtTheStartIsNotReported", "|", ""},
    {"OrderRepetitionsAndBlankLinesChangeNothing", "usb1\n\nusb1\nusb2\n|\nusb2\nusb1\n\nusb2",
     "|sys05 usb1|sys05 usb2"},
    {"AddedDevicesAreReportedBeforeRemovedOnes", "a\nb\n|c\nd\n",
     "|sys05 a|sys05 b|sys06 c|sys06 d|sys07 a|sys07 b"},
    {"EachPollIsComparedWithTheOneBefore", "usb1|usb1\nusb2|usb1|usb1\nusb2",
     "|sys05 usb1|sys06 usb2|sys07 usb2|sys06 usb2"},
    {"LinesAreComparedWhole", "usb1\n|usb1 \n|usb1\r\n",
     "|sys05 usb1|sys06 usb1 |sys07 usb1|sys06 usb1\r|sys07 usb1 "},
    {"PresentDevicesAreKnownThoughTheyMayNotBeReported", "usb1|usb1\nusb2", "|sys06 usb2", false},
    {"AddedDevicesAreKnownThoughTheyMayNotBeReported", "usb1|usb1\nusb2|usb1\nusb2|usb1",
     "|sys05 usb1|sys07 usb2", true, false},
    {"RemovedDevicesAreForgottenThoughTheyMayNotBeReported", "usb1\nusb2|usb1|usb1\nusb2",
     "|sys06 usb2", false, true, false},
    {"LineIsReportedInUtf8AndCutTo127Bytes", "Gerät " + kLong,
     "|sys05 " + ("Gerät " + kLong).substr(0, 127)},
    {"LinesThatDifferBeyondTheCutAreTwoDevices", kLong + "1\n" + kLong + "2\n",
     "|sys05 " + kLong + "|sys05 " + kLong}};

INSTANTIATE_TEST_SUITE_P(Rows, UsbPolls, testing::ValuesIn(kPolls), OutcomeOf());

TEST(UsbDevMonTest, MissingScriptRemovesAllDevicesUntilItWorksAgain) {
  UsbDevMon monitor(true, true, true);
  WritePrintingScript(kUsbScriptPath, "usb1\n");
  EXPECT_EQ(RaisedBy([&] { monitor.Init(); }), "|sys05 usb1");
  std::remove(kUsbScriptPath);
  EXPECT_EQ(RaisedBy([&] { monitor.Check(); }), "|sys07 usb1");
  WritePrintingScript(kUsbScriptPath, "usb1\n");
  EXPECT_EQ(RaisedBy([&] { monitor.Check(); }), "|sys06 usb1");
  EXPECT_EQ(RaisedBy([&] { monitor.Init(); }), "|sys05 usb1");
}

}  // namespace
}  // namespace ov
