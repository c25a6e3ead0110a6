// The settings over several states of their file. Sections: for each state one that says whether
// the file exists, whether it is looked at for a change and whether it is parsed, and its
// modification time (as in "111 1700000000"), and one with the file.
#include <QSettings>
#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <utility>

#include "config/settings.h"
#include "support/expect.h"
#include "support/files.h"
#include "support/printed.h"
#include "support/sections.h"
#include "support/text.h"

namespace ov::fuzz {
namespace {

constexpr char kPath[] = "/tmp/ov-event-logger.ini";

using Entries = std::map<std::string, std::string>;

bool ConsistsOf(std::string_view text, std::string_view punctuation) {
  return std::all_of(text.begin(), text.end(), [punctuation](char byte) {
    return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
           (byte >= '0' && byte <= '9') || punctuation.find(byte) != std::string_view::npos;
  });
}

// What the section of this name puts in front of its keys: "general", in any letter case, is no
// section, and behind a "%" stands for one of that name.
std::optional<std::string> PrefixIn(std::string_view name) {
  constexpr std::string_view kGeneral = "general";
  const bool escaped = name.front() == '%';
  if (escaped) {
    name.remove_prefix(1);
  }
  const bool general =
      std::equal(name.begin(), name.end(), kGeneral.begin(), kGeneral.end(),
                 [](char byte, char lower) { return byte == lower || byte == lower - 'a' + 'A'; });
  if (general && !escaped) {
    return "";
  }
  if (!ConsistsOf(name, "") || (escaped && !general)) {
    return {};
  }
  return std::string(name) + "/";
}

// A file of the plain form: comments, and keys with values in which nothing is escaped or quoted,
// in sections or not.
std::optional<Entries> PlainEntries(std::string_view file) {
  Entries entries;
  std::string section;
  for (const std::string_view line : Split(file, '\n')) {
    if (line.empty() || line[0] == ';') {
      if (!ConsistsOf(line, "; .=")) {
        return {};
      }
      continue;
    }
    if (line.size() > 2 && line.front() == '[' && line.back() == ']') {
      const std::optional<std::string> prefix = PrefixIn(line.substr(1, line.size() - 2));
      if (!prefix) {
        return {};
      }
      section = *prefix;
      continue;
    }
    const std::size_t equals = line.find('=');
    const std::string_view key = line.substr(0, equals);
    if (equals == std::string_view::npos || key.empty() || !ConsistsOf(key, "") ||
        !ConsistsOf(line.substr(equals + 1), " .:<>()[]-")) {
      return {};
    }
    entries[section + std::string(key)] = Trimmed(line.substr(equals + 1));
  }
  return entries;
}

// What Qt's reader makes of any other form is not this system's rule. Nothing for a file with half
// of a surrogate pair, of which a text in UTF-8 does not tell.
std::optional<Entries> EntriesByQt() {
  const QSettings file(QString::fromLatin1(kPath), QSettings::IniFormat);
  Entries entries;
  for (const QString &key : file.allKeys()) {
    const QString value = file.value(key).toString();
    if (!(key + value).isValidUtf16()) {
      return {};
    }
    entries[Utf8(key)] = Utf8(value);
  }
  return entries;
}

// What Qt's reader says of the file each time it is read, which is nothing but for an empty key.
std::string ReaderComplaint(const Entries &entries) {
  return entries.count("") == 0 ? "" : "QSettings::value: Empty key passed\n";
}

// A decimal integer that fits, among white space.
std::optional<std::int32_t> IntegerIn(std::string_view text) {
  text = Trimmed(text);
  const bool negative = !text.empty() && text.front() == '-';
  if (negative || (!text.empty() && text.front() == '+')) {
    text.remove_prefix(1);
  }
  std::int64_t number = 0;
  for (const char byte : text) {
    if (byte < '0' || byte > '9') {
      return {};
    }
    number = std::min<std::int64_t>(number * 10 + (byte - '0'), std::int64_t{1} << 40);
  }
  number = negative ? -number : number;
  if (text.empty() || number < INT32_MIN || number > INT32_MAX) {
    return {};
  }
  return static_cast<std::int32_t>(number);
}

// The Latin-1 bytes of a text, if it has them and they hold no zero byte.
std::optional<std::string> Latin1(std::string_view utf8) {
  std::string bytes;
  for (std::size_t i = 0; i < utf8.size(); ++i) {
    const auto byte = static_cast<unsigned char>(utf8[i]);
    if (byte == 0 || byte > 0xC3) {
      return {};
    }
    bytes += static_cast<char>(byte < 0x80 ? byte
                                           : (byte & 0x03U) << 6U |
                                                 (static_cast<unsigned char>(utf8[++i]) & 0x3FU));
  }
  return bytes;
}

// The settings' rule.
class Model {
 public:
  void SetFile(const std::optional<Entries> &entries, std::int64_t second) {
    file_ = entries;
    second_ = second;
  }

  void Parse() {
    raw_ = Read();
    for (const auto &[key, value] : raw_) {
      Apply(key, value);
    }
  }

  bool NoticesChange() {
    if (!file_ || second_ == lastModified_) {
      return false;
    }
    lastModified_ = second_;
    return raw_ != Read();
  }

  // What reading the file printed since the last call.
  std::string TakeComplaints() { return std::exchange(complaints_, {}); }

  // What parsing prints, a line each in alphabetical order.
  [[nodiscard]] std::string Dump() const {
    std::string dump;
    for (const auto &[key, value] : raw_) {
      dump.append(UpToNul(key)).append(": ").append(UpToNul(value)).append("\n");
    }
    return dump;
  }

  void ExpectSameAs(const Settings &settings) const {
    ExpectSame("facility", settings.facility(), Number("facility"));
    ExpectSame("formatString", Utf8(settings.formatString()), texts_.at("formatString"));
    ExpectSame("protocol", settings.protocol(), protocol_);
    ExpectSame("host", Utf8(settings.host()), texts_.at("host"));
    ExpectSame("port", settings.port(), Number("port"));
    ExpectSame("usbDevMon", settings.usbDevMon(), Number("usbDevMon") > 0);
    ExpectSame("vmwSigninMon", settings.vmwSigninMon(), Number("vmwSigninMon") > 0);
    ExpectSame("agentConnMon", settings.agentConnMon(), Number("agentConnMon") > 0);
    ExpectSame("perfMon", settings.perfMon(), Number("perfMon") > 0);
    ExpectSame("cpuThreshold", settings.cpuThreshold(), Number("cpuThreshold"));
    ExpectSame("memThreshold", settings.memThreshold(), Number("memThreshold"));
    ExpectSame("diskThreshold", settings.diskThreshold(), Number("diskThreshold"));
    for (const std::string &id : probes_) {
      ExpectSame(id.c_str(), settings.isAllowed(id.c_str()), allowed_.count(id) == 1);
    }
  }

 private:
  Entries Read() {
    Entries entries = file_.value_or(Entries());
    complaints_ += ReaderComplaint(entries);
    return entries;
  }

  [[nodiscard]] std::int32_t Number(const char *key) const { return numbers_.at(key); }

  void Apply(const std::string &key, const std::string &value) {
    if (numbers_.count(key) != 0) {
      numbers_[key] = IntegerIn(value).value_or(numbers_[key]);
    } else if (texts_.count(key) != 0) {
      texts_[key] = value;
    } else if (key == "protocol") {
      protocol_ = value == "syslog-tcp" ? 1 : 0;
    } else if (key == "allowed") {
      Allow(value);
    }
  }

  void Allow(std::string_view value) {
    allowed_.clear();
    for (const std::string_view piece : Split(value, ' ')) {
      if (const std::optional<std::string> id = Latin1(Trimmed(piece))) {
        allowed_.insert(*id);
        probes_.insert(*id);
      }
      for (const char separator : {',', '\t', ';', '\n'}) {
        for (const std::string_view part : Split(piece, separator)) {
          probes_.emplace(UpToNul(part));
        }
      }
    }
  }

  std::optional<Entries> file_;
  std::int64_t second_ = 0;
  std::string complaints_;
  Entries raw_;
  std::int64_t lastModified_ = 0;
  std::map<std::string, std::int32_t> numbers_ = {
      {"facility", 3},      {"port", 514},        {"usbDevMon", 0},
      {"vmwSigninMon", 0},  {"agentConnMon", 0},  {"perfMon", 0},
      {"cpuThreshold", 80}, {"memThreshold", 80}, {"diskThreshold", 80}};
  std::map<std::string, std::string> texts_ = {
      {"formatString", "<[PRI]> [DATE] [NAME]([IP]): [ID] [DESC] - [VAL] ([SEV])"}, {"host", ""}};
  std::int32_t protocol_ = 0;
  std::set<std::string> allowed_;
  std::set<std::string> probes_ = {"", " ", "perf01", "sys05", "PERF01", "perf01,sys05"};
};

std::vector<std::string> SortedLines(const std::string &text) {
  const std::vector<std::string_view> lines = Split(text, '\n');
  std::vector<std::string> sorted(lines.begin(), lines.end());
  std::sort(sorted.begin(), sorted.end());
  return sorted;
}

void Place(std::string_view file, bool exists, std::int64_t second, Model &model) {
  if (!exists) {
    RemoveFile(kPath);
    model.SetFile({}, second);
    return;
  }
  WriteFile(kPath, file);
  SetModificationSecond(kPath, second);
  std::optional<Entries> entries = PlainEntries(file);
  if (!entries) {
    entries = EntriesByQt();
  }
  if (!entries) {
    Place("", true, second, model);
    return;
  }
  model.SetFile(entries, second);
  TakePrinted();
}

void Run(const std::vector<std::string_view> &sections) {
  Settings settings;
  Model model;
  for (std::size_t i = 0; i + 1 < sections.size(); i += 2) {
    Options options(sections[i]);
    const bool exists = options.Flag();
    const bool check = options.Flag();
    const bool parse = options.Flag();
    Place(sections[i + 1], exists, options.Number(), model);
    if (check) {
      ExpectSame("change", settings.settingsChanged(), model.NoticesChange());
      ExpectPrinted("", model.TakeComplaints());
    }
    if (parse) {
      settings.parseSettings();
      model.Parse();
      const Printed printed = TakePrinted();
      ExpectSame("entries printed", SortedLines(printed.out), SortedLines(model.Dump()));
      ExpectSame("standard error", printed.err, model.TakeComplaints());
    }
    model.ExpectSameAs(settings);
  }
}

}  // namespace
}  // namespace ov::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  ov::fuzz::CatchPrinted();
  ov::fuzz::Run(ov::fuzz::SectionsOf(data, size));
  return 0;
}
