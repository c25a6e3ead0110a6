// The loading of the definitions file. Sections: whether the system file and the fallback exist and
// by how many bytes a comment in front lengthens them (as in "10 0"), the one file, the other.
#include <map>
#include <set>

#include "service/event_catalogue.h"
#include "support/expect.h"
#include "support/files.h"
#include "support/printed.h"
#include "support/sections.h"
#include "support/text.h"

namespace ov::fuzz {
namespace {

constexpr char kSystemPath[] = "/usr/lib/orvan/ov-event-logger/ov-event-def.csv";
constexpr char kFallbackPath[] = "/tmp/ov-event-def.csv";

// Label, description, severity name and severity.
using Definition = std::pair<std::vector<std::string>, std::int32_t>;
using Definitions = std::vector<std::pair<std::string, Definition>>;

// What loading gives and says.
struct Outcome {
  std::map<std::string, Definition> definitions;
  std::string out;
  std::string err;
};

std::int32_t SeverityOf(std::string_view name, std::string &err) {
  std::int32_t severity = 0;
  for (const char *known : {"emerg", "alert", "crit", "err", "warn", "notice", "info", "debug"}) {
    if (UpToNul(name) == known) {
      return severity;
    }
    ++severity;
  }
  err.append("Unknown syslog level: ").append(UpToNul(name)).append("\n");
  return -1;
}

void AddLine(const std::string &line, Outcome &outcome) {
  constexpr std::size_t kColumns = 4;
  if (!line.empty() && line[0] == '#') {
    return;
  }
  const std::vector<std::string_view> columns = Split(line, ',');
  if (columns.size() < kColumns) {
    outcome.err += "Invalid line format: " + Quoted(line) + "\n";
    return;
  }
  std::vector<std::string> texts;
  for (std::size_t i = 1; i < kColumns; ++i) {
    texts.emplace_back(Trimmed(columns[i]));
  }
  const std::int32_t severity = SeverityOf(texts.back(), outcome.err);
  outcome.definitions[std::string(Trimmed(columns[0]))] = {texts, severity};
}

// A file that is there or not.
struct File {
  const char *path;
  bool exists;
  std::string contents;

  void Place() const {
    if (exists) {
      WriteFile(path, contents);
    } else {
      RemoveFile(path);
    }
  }
};

Outcome OutcomeOf(const File &system, const File &fallback) {
  Outcome outcome;
  outcome.out = "loading Event definitions...\n";
  for (const File &file : {system, fallback}) {
    if (file.exists) {
      outcome.out += std::string("loading ") + file.path + "\n";
      for (const std::string &line : FileLines(file.contents)) {
        AddLine(line, outcome);
      }
      break;
    }
  }
  return outcome;
}

Definitions InOrder(const EventCatalogue &catalogue) {
  std::map<std::string, Definition> definitions;
  for (auto entry = catalogue.cbegin(); entry != catalogue.cend(); ++entry) {
    ExpectSame("identifier", Utf8(entry->id), Utf8(entry.key()));
    definitions[Utf8(entry.key())] = {
        {Utf8(entry->label), Utf8(entry->description), Utf8(entry->severityName)}, entry->severity};
  }
  return {definitions.begin(), definitions.end()};
}

void Run(const std::vector<std::string_view> &sections) {
  const auto section = [&sections](std::size_t index) {
    return index < sections.size() ? sections[index] : std::string_view();
  };
  Options options(sections[0]);
  const bool systemExists = options.Flag();
  const bool fallbackExists = options.Flag();
  std::string comment = Padding(options.Number());
  if (!comment.empty()) {
    comment.front() = '#';
    comment.back() = '\n';
  }
  const File system{kSystemPath, systemExists, comment + std::string(section(1))};
  const File fallback{kFallbackPath, fallbackExists, comment + std::string(section(2))};
  system.Place();
  fallback.Place();
  const EventCatalogue catalogue = loadEventDefinitions();
  const Outcome outcome = OutcomeOf(system, fallback);
  ExpectPrinted(outcome.out, outcome.err);
  ExpectSame("definitions", InOrder(catalogue),
             Definitions(outcome.definitions.begin(), outcome.definitions.end()));
}

}  // namespace
}  // namespace ov::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  ov::fuzz::CatchPrinted();
  ov::fuzz::Run(ov::fuzz::SectionsOf(data, size));
  return 0;
}
