// The performance monitor over several outputs of its script. Sections: which of the three events
// are allowed and the three thresholds (as in "111 80 80 80"), then an output for each check.
#include <array>
#include <cstdio>

#include "monitors/perf_mon.h"
#include "support.h"

namespace ov::fuzz {
namespace {

// The rule for one of the monitor's resources.
struct Resource {
  const char *key;
  const char *event;
  bool isAllowed;
  float threshold;
  float value = 0;
  bool isRaised = false;

  void Read(const QString &output) {
    for (const QString &line : output.split(QLatin1Char('\n'))) {
      if (line.count(QLatin1Char('=')) == 1 &&
          line.section(QLatin1Char('='), 0, 0).trimmed() == QLatin1String(key)) {
        value = line.section(QLatin1Char('='), 1).trimmed().toFloat();
      }
    }
  }

  void Evaluate(Events &events) {
    const bool isReached = value >= threshold;
    if (isAllowed && isReached && !isRaised) {
      std::array<char, 128> values{};
      std::snprintf(values.data(), values.size(), "%.2f%% > %.2f%%", static_cast<double>(value),
                    static_cast<double>(threshold));
      events.append(EventOf(event, QLatin1String(values.data())));
    }
    isRaised = isReached;
  }
};

}  // namespace

void Run(const Sections &sections) {
  constexpr int kLongestValues = 15;
  Options options(sections[0]);
  std::array<Resource, 3> resources{{{"cpu", "perf01", options.Flag(), 0},
                                     {"mem", "perf02", options.Flag(), 0},
                                     {"disk", "perf03", options.Flag(), 0}}};
  for (Resource &resource : resources) {
    resource.threshold = static_cast<float>(options.Number());
  }
  const auto &[cpu, mem, disk] = resources;
  PerfMon monitor(cpu.isAllowed, mem.isAllowed, disk.isAllowed, cpu.threshold, mem.threshold,
                  disk.threshold);
  monitor.Init();
  for (std::size_t i = 1; i < sections.size(); ++i) {
    Events wanted;
    for (Resource &resource : resources) {
      resource.Read(OutputText(sections[i]));
      resource.Evaluate(wanted);
    }
    for (const auto &event : wanted) {
      if (event.second.size() > kLongestValues) {
        return;  // the monitor would end the process
      }
    }
    SetAnswer([&](const QStringList &command) {
      ExpectSame("command", command, {QLatin1String(kPerfScriptPath)});
      return sections[i];
    });
    monitor.Check();
    ExpectSame("events", TakeEvents(), wanted);
    ExpectPrinted("", "");
  }
}

}  // namespace ov::fuzz
