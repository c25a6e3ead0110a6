// The USB device monitor over several outputs of its script. Sections: which of the three events
// are allowed (as in "111"), then an output for the start and one for each check.
#include <algorithm>
#include <set>

#include "monitors/usb_dev_mon.h"
#include "support/events.h"
#include "support/expect.h"
#include "support/printed.h"
#include "support/programs.h"
#include "support/sections.h"
#include "support/text.h"

namespace ov::fuzz {
namespace {

using Devices = std::set<std::string>;

Devices DevicesIn(std::string_view output) {
  const std::string text = OutputText(output);
  Devices devices;
  for (const std::string_view line : Split(text, '\n')) {
    if (!line.empty()) {
      devices.emplace(line);
    }
  }
  return devices;
}

// The monitor's rule, in which a device is a line.
class Model {
 public:
  Model(bool presentAllowed, bool addedAllowed, bool removedAllowed)
      : presentAllowed_(presentAllowed),
        addedAllowed_(addedAllowed),
        removedAllowed_(removedAllowed) {}

  Events Start(std::string_view output) {
    devices_ = DevicesIn(output);
    return presentAllowed_ ? EventsOf("sys05", devices_, {}) : Events{};
  }

  Events Check(std::string_view output) {
    const Devices now = DevicesIn(output);
    Events events;
    if (addedAllowed_) {
      events = EventsOf("sys06", now, devices_);
    }
    if (removedAllowed_) {
      const Events removed = EventsOf("sys07", devices_, now);
      events.insert(events.end(), removed.begin(), removed.end());
    }
    devices_ = now;
    return events;
  }

 private:
  // One for each device that is not among the others, in the order of their values.
  static Events EventsOf(const char *id, const Devices &devices, const Devices &others) {
    Events events;
    for (const std::string &device : devices) {
      if (others.count(device) == 0) {
        events.push_back(EventOf(id, device));
      }
    }
    std::sort(events.begin(), events.end());
    return events;
  }

  bool presentAllowed_;
  bool addedAllowed_;
  bool removedAllowed_;
  Devices devices_;
};

// The order among events of one kind is not defined, that of the kinds is.
Events TakeEventsInOrder() {
  Events events = TakeEvents();
  for (auto run = events.begin(); run != events.end();) {
    const auto end = std::find_if(run, events.end(),
                                  [run](const auto &event) { return event.first != run->first; });
    std::sort(run, end);
    run = end;
  }
  return events;
}

void Run(const std::vector<std::string_view> &sections) {
  Options options(sections[0]);
  const bool present = options.Flag();
  const bool added = options.Flag();
  const bool removed = options.Flag();
  UsbDevMon monitor(present, added, removed);
  Model model(present, added, removed);
  for (std::size_t i = 1; i < sections.size(); ++i) {
    int runs = 0;
    SetAnswer([&](const std::vector<std::string> &command) {
      ExpectSame("command", command, {"/usr/lib/orvan/ov-event-logger/usb-devices.sh"});
      ++runs;
      return std::string(sections[i]);
    });
    if (i == 1) {
      monitor.Init();
    } else {
      monitor.Check();
    }
    ExpectSame("runs of the script", runs, 1);
    ExpectSame("events", TakeEventsInOrder(),
               i == 1 ? model.Start(sections[i]) : model.Check(sections[i]));
    ExpectPrinted("", "");
  }
}

}  // namespace
}  // namespace ov::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  ov::fuzz::CatchPrinted();
  ov::fuzz::Run(ov::fuzz::SectionsOf(data, size));
  return 0;
}
