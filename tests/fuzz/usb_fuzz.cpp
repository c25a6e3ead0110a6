// The USB device monitor over several outputs of its script. Sections: which of the three events
// are allowed (as in "111"), then an output for the start and one for each check.
#include <QSet>
#include <algorithm>

#include "monitors/usb_dev_mon.h"
#include "support.h"

namespace ov::fuzz {
namespace {

// One event for each line that is not among the others.
void AddEvents(const char *id, const QStringList &lines, const QStringList &others,
               Events &events) {
  for (const QString &line : lines) {
    if (!others.contains(line)) {
      events.append(EventOf(id, line));
    }
  }
}

// The order among events of one kind is not defined, that of the kinds is.
Events Sorted(Events events) {
  std::sort(events.begin(), events.end());
  return events;
}

bool IsInOrderOfKinds(const Events &events) {
  return std::is_sorted(events.begin(), events.end(),
                        [](const auto &a, const auto &b) { return a.first < b.first; });
}

}  // namespace

void Run(const Sections &sections) {
  Options options(sections[0]);
  const bool presentAllowed = options.Flag();
  const bool addedAllowed = options.Flag();
  const bool removedAllowed = options.Flag();
  UsbDevMon monitor(presentAllowed, addedAllowed, removedAllowed);
  QStringList before;
  for (std::size_t i = 1; i < sections.size(); ++i) {
    int runs = 0;
    SetAnswer([&](const QStringList &command) {
      ExpectSame("command", command, {QLatin1String(kUsbScriptPath)});
      ++runs;
      return sections[i];
    });
    QStringList now = OutputText(sections[i]).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    now.removeDuplicates();
    Events wanted;
    if (i == 1) {
      monitor.Init();
      AddEvents("sys05", presentAllowed ? now : QStringList(), {}, wanted);
    } else {
      monitor.Check();
      AddEvents("sys06", addedAllowed ? now : QStringList(), before, wanted);
      AddEvents("sys07", removedAllowed ? before : QStringList(), now, wanted);
    }
    const Events got = TakeEvents();
    ExpectSame("runs of the script", runs, 1);
    ExpectSame("order of the kinds", IsInOrderOfKinds(got), true);
    ExpectSame("events", Sorted(got), Sorted(wanted));
    ExpectPrinted("", "");
    before = now;
  }
}

}  // namespace ov::fuzz
