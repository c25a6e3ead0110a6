#include "monitors/usb_dev_mon.h"

#include <QStringList>

#include "event/built_in_events.h"
#include "monitors/script_runner.h"

namespace ov {

UsbDevMon::UsbDevMon(bool presentAllowed, bool addedAllowed, bool removedAllowed)
    : Monitor(QStringLiteral("USB Device Monitor"), kUsbPeriod),
      presentAllowed_(presentAllowed),
      addedAllowed_(addedAllowed),
      removedAllowed_(removedAllowed) {}

QSet<QString> UsbDevMon::ReadDevices() {
  return DevicesFrom(RunScript(QLatin1String(kUsbScriptPath), {}));
}

QSet<QString> UsbDevMon::DevicesFrom(const QString &output) {
  const QStringList lines = output.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
  return QSet<QString>(lines.cbegin(), lines.cend());
}

void UsbDevMon::Init() {
  devices_ = ReadDevices();
  if (presentAllowed_) {
    RaiseForEach(kUsbDevicePresent, devices_);
  }
}

void UsbDevMon::Check() {
  const QSet<QString> present = ReadDevices();
  if (addedAllowed_) {
    RaiseForEach(kUsbDeviceAdded, present - devices_);
  }
  if (removedAllowed_) {
    RaiseForEach(kUsbDeviceRemoved, devices_ - present);
  }
  devices_ = present;
}

void UsbDevMon::RaiseForEach(const char *eventId, const QSet<QString> &devices) {
  for (const QString &device : devices) {
    RaiseEvent(eventId, device.toUtf8());
  }
}

}  // namespace ov
