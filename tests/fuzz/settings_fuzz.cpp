// The settings over several states of their file. Sections: for each state one that says whether
// the file exists, whether it is looked at for a change and whether it is parsed, and its
// modification time (as in "111 1700000000"), and one with the file. Qt reads the file for the
// product and for the harness alike.
#include <fcntl.h>
#include <sys/stat.h>

#include <QMap>
#include <QSet>
#include <QSettings>
#include <QVariant>
#include <algorithm>
#include <array>

#include "config/settings.h"
#include "support.h"

namespace ov::fuzz {
namespace {

using Entries = QMap<QString, QString>;

Entries ReadEntries() {
  const QSettings file(QLatin1String(kSettingsPath), QSettings::IniFormat);
  Entries entries;
  for (const QString &key : file.allKeys()) {
    entries[key] = file.value(key).toString();
  }
  return entries;
}

// No two calls in a row give the same fraction of a second: Qt takes a file of the same time and
// size for read already.
void SetModificationSecond(std::int64_t second) {
  static long millisecond = 0;
  millisecond = (millisecond + 1) % 1000;
  const timespec time{second, millisecond * 1'000'000};
  const std::array<timespec, 2> times{time, time};
  ExpectSame("setting of a file's time", utimensat(AT_FDCWD, kSettingsPath, times.data(), 0), 0);
}

// The rule of the settings.
struct Model {
  bool exists = false;
  Entries file;
  std::int64_t second = 0;
  Entries raw;
  std::int64_t lastModified = 0;
  QMap<QString, std::int32_t> numbers = {
      {QStringLiteral("facility"), 3},      {QStringLiteral("port"), 514},
      {QStringLiteral("usbDevMon"), 0},     {QStringLiteral("vmwSigninMon"), 0},
      {QStringLiteral("agentConnMon"), 0},  {QStringLiteral("perfMon"), 0},
      {QStringLiteral("cpuThreshold"), 80}, {QStringLiteral("memThreshold"), 80},
      {QStringLiteral("diskThreshold"), 80}};
  Entries texts = {{QStringLiteral("formatString"),
                    QStringLiteral("<[PRI]> [DATE] [NAME]([IP]): [ID] [DESC] - [VAL] ([SEV])")},
                   {QStringLiteral("host"), {}},
                   {QStringLiteral("protocol"), {}},
                   {QStringLiteral("allowed"), {}}};

  bool isAllowedKnown = false;

  void Parse() {
    raw = file;
    isAllowedKnown = isAllowedKnown || raw.contains(QStringLiteral("allowed"));
    for (auto entry = raw.cbegin(); entry != raw.cend(); ++entry) {
      bool isNumber = false;
      const int number = entry->toInt(&isNumber);
      if (numbers.contains(entry.key()) && isNumber) {
        numbers[entry.key()] = number;
      } else if (texts.contains(entry.key())) {
        texts[entry.key()] = *entry;
      }
    }
  }

  bool NoticesChange() {
    if (!exists || second == lastModified) {
      return false;
    }
    lastModified = second;
    return raw != file;
  }

  // A line for each entry, in the order of the lines.
  [[nodiscard]] QList<QByteArray> Dump() const {
    QList<QByteArray> lines;
    for (auto entry = raw.cbegin(); entry != raw.cend(); ++entry) {
      lines += (UpToNul(entry.key().toUtf8()) + ": " + UpToNul(entry->toUtf8())).split('\n');
    }
    lines.append("");
    std::sort(lines.begin(), lines.end());
    return lines;
  }

  void ExpectSameAs(const Settings &settings) const {
    const auto number = [this](const char *key) { return numbers[QLatin1String(key)]; };
    const auto text = [this](const char *key) { return texts[QLatin1String(key)]; };
    ExpectSame("facility", settings.facility(), number("facility"));
    ExpectSame("formatString", settings.formatString(), text("formatString"));
    ExpectSame("protocol", settings.protocol() == Protocol::kTcp,
               text("protocol") == QLatin1String("syslog-tcp"));
    ExpectSame("host", settings.host(), text("host"));
    ExpectSame("port", settings.port(), number("port"));
    ExpectSame("usbDevMon", settings.usbDevMon(), number("usbDevMon") > 0);
    ExpectSame("vmwSigninMon", settings.vmwSigninMon(), number("vmwSigninMon") > 0);
    ExpectSame("agentConnMon", settings.agentConnMon(), number("agentConnMon") > 0);
    ExpectSame("perfMon", settings.perfMon(), number("perfMon") > 0);
    ExpectSame("cpuThreshold", settings.cpuThreshold(), number("cpuThreshold"));
    ExpectSame("memThreshold", settings.memThreshold(), number("memThreshold"));
    ExpectSame("diskThreshold", settings.diskThreshold(), number("diskThreshold"));
    ExpectSameAllowed(settings, text("allowed"));
  }

 private:
  void ExpectSameAllowed(const Settings &settings, const QString &allowed) const {
    QSet<QString> ids;
    for (const QString &word : allowed.split(QLatin1Char(' '))) {
      ids.insert(word.trimmed());
    }
    for (const char separator : {' ', ',', '\t', ';', '\n'}) {
      for (const QByteArray &id : (allowed.toLatin1() + separator + "sys05").split(separator)) {
        ExpectSame("allowed", settings.isAllowed(id.toStdString()),
                   isAllowedKnown && ids.contains(QString::fromLatin1(id.constData(), id.size())));
      }
    }
  }
};

}  // namespace

void Run(const Sections &sections) {
  Settings settings;
  Model model;
  for (std::size_t i = 0; i + 1 < sections.size(); i += 2) {
    Options options(sections[i]);
    model.exists = options.Flag();
    const bool isCheck = options.Flag();
    const bool isParse = options.Flag();
    model.second = options.Number();
    PlaceFile(kSettingsPath, model.exists, sections[i + 1]);
    if (model.exists) {
      SetModificationSecond(model.second);
    }
    model.file = model.exists ? ReadEntries() : Entries();
    TakePrinted();
    if (isCheck) {
      ExpectSame("change", settings.settingsChanged(), model.NoticesChange());
      ExpectSame("standard output", TakePrinted().out, {});
    }
    if (isParse) {
      settings.parseSettings();
      model.Parse();
      QList<QByteArray> lines = TakePrinted().out.split('\n');
      std::sort(lines.begin(), lines.end());
      ExpectSame("entries printed", lines, model.Dump());
    }
    model.ExpectSameAs(settings);
  }
}

}  // namespace ov::fuzz
