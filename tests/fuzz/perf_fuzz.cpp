// The performance monitor over several outputs of its script. Sections: which of the three events
// are allowed and the three thresholds (as in "111 80 80 80"), then an output for each check.
#include <algorithm>
#include <array>
#include <cctype>
#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <optional>

#include "monitors/perf_mon.h"
#include "support/events.h"
#include "support/expect.h"
#include "support/printed.h"
#include "support/programs.h"
#include "support/sections.h"
#include "support/text.h"

namespace ov::fuzz {
namespace {

bool abortExpected = false;
std::jmp_buf afterAbort;

std::size_t CountDigits(std::string_view text) {
  return std::min(text.find_first_not_of("0123456789"), text.size());
}

// Takes digits, as many as there are, and says whether there were any.
bool TakeDigits(std::string_view &text) {
  const std::size_t count = CountDigits(text);
  text.remove_prefix(count);
  return count > 0;
}

bool TakeOneOf(std::string_view &text, std::string_view characters) {
  if (text.empty() || characters.find(text.front()) == std::string_view::npos) {
    return false;
  }
  text.remove_prefix(1);
  return true;
}

// Digits with a point and an exponent.
bool IsUnsignedDecimal(std::string_view text) {
  const bool whole = TakeDigits(text);
  const bool fraction = TakeOneOf(text, ".") && TakeDigits(text);
  const bool exponent = (whole || fraction) && TakeOneOf(text, "eE");
  if (exponent) {
    TakeOneOf(text, "+-");
    return TakeDigits(text) && text.empty();
  }
  return (whole || fraction) && text.empty();
}

// Also what is beyond all numbers, in letters of either case.
bool IsNumber(std::string_view text) {
  if (text == "nan") {
    return true;
  }
  TakeOneOf(text, "+-");
  return text == "inf" || IsUnsignedDecimal(text);
}

float NumberIn(std::string_view text) {
  std::string small(text);
  std::transform(small.begin(), small.end(), small.begin(),
                 [](unsigned char byte) { return byte < 0x80 ? std::tolower(byte) : byte; });
  return IsNumber(small) ? static_cast<float>(std::strtod(small.c_str(), nullptr)) : 0;
}

// The monitor's rule for one of its resources.
struct Resource {
  const char *key;
  const char *event;
  bool allowed;
  float threshold;
  float value = 0;
  bool raised = false;

  void Read(const std::string &text) {
    for (const std::string_view line : Split(text, '\n')) {
      const std::vector<std::string_view> pieces = Split(line, '=');
      if (pieces.size() == 2 && Trimmed(pieces[0]) == key) {
        value = NumberIn(Trimmed(pieces[1]));
      }
    }
  }

  // The values text of the event that is due, if one is.
  std::optional<std::string> Evaluate() {
    if (!allowed) {
      return {};
    }
    const bool reached = value >= threshold;
    const bool due = reached && !raised;
    raised = reached;
    return due ? ValuesText() : std::optional<std::string>();
  }

 private:
  [[nodiscard]] std::string ValuesText() const {
    std::array<char, 128> text{};
    std::snprintf(text.data(), text.size(), "%.2f%% > %.2f%%", static_cast<double>(value),
                  static_cast<double>(threshold));
    return text.data();
  }
};

// What one check does. A text that does not fit is the last thing a monitor says.
struct Outcome {
  Events events;
  std::string lastWords;
};

class Model {
 public:
  explicit Model(const std::array<Resource, 3> &resources) : resources_(resources) {}

  Outcome Check(const std::string &text) {
    constexpr std::size_t kLongest = 15;
    Outcome outcome;
    for (Resource &resource : resources_) {
      resource.Read(text);
    }
    for (Resource &resource : resources_) {
      const std::optional<std::string> values = resource.Evaluate();
      if (values && values->size() > kLongest) {
        outcome.lastWords = "Performance values do not fit 15 characters: " + *values + "\n";
        break;
      }
      if (values) {
        outcome.events.push_back(EventOf(resource.event, *values));
      }
    }
    return outcome;
  }

 private:
  std::array<Resource, 3> resources_;
};

// Whether the check ended the process, or would have.
bool CheckAborts(PerfMon &monitor) {
  abortExpected = true;
  const bool aborted = setjmp(afterAbort) != 0;
  if (!aborted) {
    monitor.Check();
  }
  abortExpected = false;
  return aborted;
}

void Run(const std::vector<std::string_view> &sections) {
  Options options(sections[0]);
  const std::array<bool, 3> allowed{options.Flag(), options.Flag(), options.Flag()};
  std::array<float, 3> thresholds{};
  for (float &threshold : thresholds) {
    threshold = static_cast<float>(options.Number());
  }
  PerfMon monitor(allowed[0], allowed[1], allowed[2], thresholds[0], thresholds[1], thresholds[2]);
  Model model({{{"cpu", "perf01", allowed[0], thresholds[0]},
                {"mem", "perf02", allowed[1], thresholds[1]},
                {"disk", "perf03", allowed[2], thresholds[2]}}});
  monitor.Init();
  for (std::size_t i = 1; i < sections.size(); ++i) {
    SetAnswer([&](const std::vector<std::string> &command) {
      ExpectSame("command", command, {"/usr/lib/orvan/ov-event-logger/perf.sh"});
      return std::string(sections[i]);
    });
    const Outcome outcome = model.Check(OutputText(sections[i]));
    const bool aborted = CheckAborts(monitor);
    ExpectSame("events", TakeEvents(), outcome.events);
    ExpectPrinted("", outcome.lastWords);
    ExpectSame("end of the process", aborted, !outcome.lastWords.empty());
    if (aborted) {
      return;
    }
  }
}

}  // namespace
}  // namespace ov::fuzz

// Stands in for abort in all that is linked into the program; the names are the linker's. What the
// monitor leaves behind at that point owns nothing.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {
[[noreturn]] void __real_abort();

[[noreturn]] void __wrap_abort() {
  if (ov::fuzz::abortExpected) {
    ov::fuzz::abortExpected = false;
    std::longjmp(ov::fuzz::afterAbort, 1);
  }
  __real_abort();
}
}
// NOLINTEND(bugprone-reserved-identifier)

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  ov::fuzz::CatchPrinted();
  ov::fuzz::Run(ov::fuzz::SectionsOf(data, size));
  return 0;
}
