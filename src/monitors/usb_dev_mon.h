// The USB device monitor: reports the devices that are present when it starts, and then those that
// appear and go away. A device is a line of the script's output.
#pragma once

#include <QSet>
#include <QString>
#include <chrono>

#include "monitors/monitor.h"

namespace ov {

constexpr char kUsbScriptPath[] = "/usr/lib/orvan/ov-event-logger/usb-devices.sh";
constexpr std::chrono::seconds kUsbPeriod{3};

/// Remembers the devices of the last poll.
class UsbDevMon final : public Monitor {
 public:
  /// Whether a present, an added and a removed device may be raised.
  UsbDevMon(bool presentAllowed, bool addedAllowed, bool removedAllowed);
  ~UsbDevMon() override { StopIfRunning(); }

  void Init() override;
  void Check() override;
  void Reserved() override {}

  /// The present lines of the script. A script that fails gives no devices.
  static QSet<QString> ReadDevices();

  /// The devices in the script's output: its lines that are not empty.
  static QSet<QString> DevicesFrom(const QString &output);

 private:
  static void RaiseForEach(const char *eventId, const QSet<QString> &devices);

  bool presentAllowed_;
  bool addedAllowed_;
  bool removedAllowed_;
  QSet<QString> devices_;
};

}  // namespace ov
