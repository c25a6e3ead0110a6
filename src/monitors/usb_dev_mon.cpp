#include "monitors/usb_dev_mon.h"

#include <QStringList>

#include "monitors/script_runner.h"

namespace ov {

UsbDevMon::UsbDevMon(bool presentAllowed, bool addedAllowed, bool removedAllowed)
    : Monitor(QStringLiteral("USB Device Monitor"), kUsbPeriod),
      presentAllowed_(presentAllowed),
      addedAllowed_(addedAllowed),
      removedAllowed_(removedAllowed) {}

QSet<QString> UsbDevMon::ReadDevices() {
  const QStringList lines =
      RunScript(QLatin1String(kUsbScriptPath), {}).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
  return QSet<QString>(lines.cbegin(), lines.cend());
}

void UsbDevMon::Init() {
  devices_ = ReadDevices();
  if (!presentAllowed_) {
    return;
  }
  for (const QString &device : qAsConst(devices_)) {
    RaiseEvent("sys05", device.toUtf8());
  }
}

void UsbDevMon::Check() {
  const QSet<QString> present = ReadDevices();
  const auto raiseForEach = [](const char *eventId, const QSet<QString> &devices) {
    for (const QString &device : devices) {
      RaiseEvent(eventId, device.toUtf8());
    }
  };
  if (addedAllowed_) {
    raiseForEach("sys06", present - devices_);
  }
  if (removedAllowed_) {
    raiseForEach("sys07", devices_ - present);
  }
  devices_ = present;
}

}  // namespace ov
