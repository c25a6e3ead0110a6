#include "check/check_settings.h"

#include <QRegularExpression>
#include <algorithm>
#include <limits>

#include "check/check_allowed.h"

namespace ov {

const QStringList kSettingsKeys = {
    QStringLiteral("facility"),     QStringLiteral("formatString"), QStringLiteral("allowed"),
    QStringLiteral("protocol"),     QStringLiteral("host"),         QStringLiteral("port"),
    QStringLiteral("usbDevMon"),    QStringLiteral("vmwSigninMon"), QStringLiteral("agentConnMon"),
    QStringLiteral("perfMon"),      QStringLiteral("cpuThreshold"), QStringLiteral("memThreshold"),
    QStringLiteral("diskThreshold")};

const QStringList kTextKeys = {QStringLiteral("formatString"), QStringLiteral("allowed"),
                               QStringLiteral("protocol"), QStringLiteral("host")};

namespace {

class SettingsCheck {
 public:
  SettingsCheck(const SettingsFile &file, const DefinitionsFile &definitions, Findings &findings)
      : file_(file), definitions_(definitions), findings_(findings) {}

  void CheckAll() {
    if (!file_.Exists()) {
      Add("no-settings", {file_.Path(), 0, 0, {}},
          QStringLiteral(
              "there is no such file, or no regular one: the service starts with the defaults, "
              "under which it forwards nothing. Write one with `allowed` and `host`"));
      return;
    }
    if (!file_.IsReadable()) {
      Add("unreadable-settings", {file_.Path(), 0, 0, {}},
          QStringLiteral("the file cannot be read: a service that cannot read it either starts "
                         "with the defaults, under which it forwards nothing. Give it mode 0644"));
      return;
    }
    CheckByteOrderMark();
    for (const SettingsLine &line : file_.Lines()) {
      CheckLine(line);
    }
    CheckNumbers();
    CheckProtocol();
    CheckHost();
    CheckAllowed(file_, definitions_, findings_);
  }

 private:
  void Add(const char *cause, const Place &place, const QString &sentence,
           const QStringList &events = {}) {
    findings_.Add(cause, place, sentence, events);
  }

  void CheckByteOrderMark() {
    if (file_.Contents().startsWith(kByteOrderMark)) {
      Add("byte-order-mark", {file_.Path(), 1, 1, file_.Contents().split('\n').value(0)},
          QStringLiteral("the file begins with a byte order mark: the service takes it for a part "
                         "of the first line, whose key is lost. Save the file without it"));
    }
  }

  void CheckLine(const SettingsLine &line) {
    if (line.text.startsWith('#')) {
      Add("hash-comment", file_.PlaceOf(line),
          QStringLiteral("a comment begins with \";\": the service reads this line as a key or "
                         "passes over it, and a double quote in it swallows the lines behind it"));
      return;
    }
    if (line.isSection) {
      return;
    }
    if (line.valueStart == 0) {
      if (!line.text.trimmed().isEmpty() && line.text != kByteOrderMark) {
        Add("unknown-key", file_.PlaceOf(line),
            QStringLiteral("the service passes over this line, since it has no \"=\". A comment "
                           "begins with \";\""));
      }
      return;
    }
    const QString &key = line.key;
    if (!line.section.isNull()) {
      const QString meant = Meant(key);
      if (!meant.isEmpty()) {
        Add("key-in-section", file_.PlaceOf(line),
            QStringLiteral("the service looks for `%1` outside any section and does not see it "
                           "in [%2]. Move the line above the first section, or under [General]")
                .arg(meant, line.section));
        return;
      }
    }
    if (!line.section.isNull() || !kSettingsKeys.contains(key)) {
      const QString meant = line.section.isNull() ? Meant(key) : QString();
      Add("unknown-key", file_.PlaceOf(line),
          QStringLiteral("the service does not know the key `%1` and ignores it").arg(key) +
              (meant.isEmpty() ? QString() : QStringLiteral(". Write `%1`").arg(meant)));
      return;
    }
    const SettingsLine *const last = file_.LineOf(key);
    if (last != &line) {
      Add("repeated-key", file_.PlaceOf(line),
          QStringLiteral("line %1 sets `%2` once more, and the last line holds. Remove one of them")
              .arg(QString::number(last->number), key));
      return;
    }
    CheckValue(key, line);
  }

  static QString Meant(const QString &key) {
    return kSettingsKeys.contains(key) ? key : ClosestTo(key, kSettingsKeys);
  }

  Place PlaceInValue(const SettingsLine &line, int offset) const {
    // The value may go on in another line: its column counts in the first.
    return file_.PlaceOf(line, line.valueColumn + offset);
  }

  void CheckValue(const QString &key, const SettingsLine &line) {
    const QByteArray value = line.Value();
    const int comma = line.UnquotedComma();
    if (comma >= 0) {
      Add("list-value", PlaceInValue(line, comma),
          QStringLiteral("the service reads an empty text, since an unquoted comma makes a list: "
                         "put the value in double quotes") +
              (key == QLatin1String("allowed")
                   ? QStringLiteral(", with blanks between the identifiers")
                   : QString()));
    }
    if (IsCut(key, line)) {
      Add("cut-at-semicolon", PlaceInValue(line, value.size()),
          QStringLiteral("the value of `%1` ends here, since an unquoted semicolon begins a "
                         "comment: put the value in double quotes")
              .arg(key));
    }
    const int escape = ChangingEscape(value);
    if (escape >= 0 && comma < 0) {
      Add("changed-by-escape", PlaceInValue(line, escape),
          QStringLiteral(
              "a backslash changes the value to %1: write two for each one that is meant")
              .arg(Quoted(file_.Entries().value(key))));
    }
    static const QRegularExpression kSpecial(
        QStringLiteral("^\"?@(@|(ByteArray|String|Variant|DateTime|Rect|Size|Point|Invalid)\\()"));
    if (kSpecial.match(QString::fromLatin1(value)).hasMatch()) {
      Add("special-value", PlaceInValue(line, 0),
          QStringLiteral(
              "the value has a form that the reader of the file keeps for itself, and the "
              "service reads %1 instead. A text that begins with \"@\" is written \"@@\"")
              .arg(Quoted(file_.Entries().value(key))));
    }
    if (kTextKeys.contains(key) && IsUtf8BeyondAscii(value) &&
        !file_.Contents().startsWith(kByteOrderMark)) {
      Add("not-latin1", PlaceInValue(line, FirstBeyondAscii(value)),
          QStringLiteral("the service reads each byte above 127 as a character of its own, and %1 "
                         "goes out. Write each such character as \\x and its number, as in \\xfc")
              .arg(Quoted(file_.Entries().value(key))));
    }
  }

  // A comment behind a blank is meant as one, but for texts that may well hold a semicolon.
  static bool IsCut(const QString &key, const SettingsLine &line) {
    if (line.cut.isEmpty()) {
      return false;
    }
    return key == QLatin1String("formatString") || key == QLatin1String("allowed") ||
           !(line.text.endsWith(' ') || line.text.endsWith('\t'));
  }

  // The first backslash that does not stand for a double quote, a backslash or a character's
  // number.
  static int ChangingEscape(const QByteArray &value) {
    for (int i = value.indexOf('\\'); i >= 0; i = value.indexOf('\\', i + 2)) {
      const QByteArray next = value.mid(i + 1, 2);
      const bool isNumber = next.size() == 2 && next[0] == 'x' &&
                            QByteArrayLiteral("0123456789abcdefABCDEF").contains(next[1]);
      if (!isNumber && !next.startsWith('"') && !next.startsWith('\\')) {
        return i;
      }
    }
    return -1;
  }

  static int FirstBeyondAscii(const QByteArray &value) {
    const auto *const found =
        std::find_if(value.begin(), value.end(), [](char byte) { return (byte & 0x80) != 0; });
    return static_cast<int>(found - value.begin());
  }

  static bool IsUtf8BeyondAscii(const QByteArray &value) {
    return FirstBeyondAscii(value) < value.size() &&
           !QString::fromUtf8(value).contains(QChar::ReplacementCharacter);
  }

  void CheckNumbers() {
    struct Range {
      const char *key;
      int least;
      int most;
    };
    constexpr int kAny = std::numeric_limits<int>::max();
    for (const Range &range :
         {Range{"facility", 0, 23}, Range{"port", 1, 65535}, Range{"usbDevMon", -kAny, kAny},
          Range{"vmwSigninMon", -kAny, kAny}, Range{"agentConnMon", -kAny, kAny},
          Range{"perfMon", -kAny, kAny}, Range{"cpuThreshold", 0, 99}, Range{"memThreshold", 0, 99},
          Range{"diskThreshold", 0, 99}}) {
      CheckNumber(QLatin1String(range.key), range.least, range.most);
    }
  }

  void CheckNumber(const QString &key, int least, int most) {
    const auto entry = file_.Entries().constFind(key);
    if (entry == file_.Entries().cend()) {
      return;
    }
    bool isNumber = false;
    const int number = entry->toInt(&isNumber, 10);
    if (!isNumber) {
      Add("not-a-number", file_.PlaceOfKey(key),
          QStringLiteral(
              "%1 is no decimal number, and `%2` keeps the value from before. Write digits "
              "alone")
              .arg(Quoted(*entry), key));
    } else if (number < least || number > most) {
      Add("out-of-range", file_.PlaceOfKey(key),
          QStringLiteral("%1 is outside %2 to %3, which is what `%4` may be: %5")
              .arg(*entry, QString::number(least), QString::number(most), key, Effect(key)));
    }
  }

  static QString Effect(const QString &key) {
    if (key == QLatin1String("facility")) {
      return QStringLiteral("the priority of every line is wrong");
    }
    if (key == QLatin1String("port")) {
      return QStringLiteral("the service sends to a port of other digits, or to none");
    }
    return QStringLiteral("the event comes at every reading or never, or ends the service");
  }

  void CheckProtocol() {
    const auto entry = file_.Entries().constFind(QStringLiteral("protocol"));
    if (entry != file_.Entries().cend() && *entry != QLatin1String("syslog-udp") &&
        *entry != QLatin1String("syslog-tcp")) {
      Add("unknown-protocol", file_.PlaceOfKey(QStringLiteral("protocol")),
          QStringLiteral("the service does not know the protocol %1 and uses UDP. Write syslog-udp "
                         "or syslog-tcp")
              .arg(Quoted(*entry)));
    }
  }

  void CheckHost() {
    const QString key = QStringLiteral("host");
    const QString host = file_.InForce().host();
    if (host.isEmpty()) {
      Add("no-host", file_.PlaceOfKey(key),
          QStringLiteral("`host` is empty: the service has no collector and every line is lost. "
                         "Write the collector's IPv4 address or name"));
    } else if (host.contains(QRegularExpression(QStringLiteral("[:/\\[\\]\\s]")))) {
      Add("host-not-ipv4", file_.PlaceOfKey(key),
          QStringLiteral(
              "%1 is neither an IPv4 address nor a name, and every line is lost. Write the "
              "address or the name alone, and the port as `port`")
              .arg(Quoted(host)));
    }
  }

  const SettingsFile &file_;
  const DefinitionsFile &definitions_;
  Findings &findings_;
};

}  // namespace

void CheckSettings(const SettingsFile &settings, const DefinitionsFile &definitions,
                   Findings &findings) {
  SettingsCheck(settings, definitions, findings).CheckAll();
}

}  // namespace ov
