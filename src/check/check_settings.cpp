#include "check/check_settings.h"

#include <arpa/inet.h>

#include <QRegularExpression>
#include <algorithm>
#include <limits>

#include "check/built_in_monitors.h"
#include "check/check_allowed.h"

namespace ov {

namespace {

// The identifiers that a key touches, if these are not all.
QStringList EventsOf(const QString &key) {
  static const QStringList kThresholds = {QStringLiteral("cpuThreshold"),
                                          QStringLiteral("memThreshold"),
                                          QStringLiteral("diskThreshold")};
  for (const BuiltInMonitor &monitor : BuiltInMonitors()) {
    if (monitor.key == key) {
      return monitor.events;
    }
    if (monitor.key == QLatin1String("perfMon") && kThresholds.contains(key)) {
      return {monitor.events[kThresholds.indexOf(key)]};
    }
  }
  return {};
}

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

  void CheckLine(const SettingsLine &line) {
    const Place place = file_.PlaceAt(line.start);
    if (line.text.startsWith('#')) {
      Add("hash-comment", place,
          QStringLiteral("a comment begins with \";\": the service reads this line as a key or "
                         "passes over it, and a double quote in it swallows the lines behind it"));
      return;
    }
    if (line.isSection) {
      return;
    }
    if (line.text.startsWith(kByteOrderMark)) {
      if (line.valueStart > 0) {
        Add("byte-order-mark", place,
            QStringLiteral(
                "the file begins with a byte order mark: the service takes it for a part "
                "of the first line, whose key is lost. Save the file without it"));
      }
      return;
    }
    if (line.valueStart == 0) {
      if (!line.text.trimmed().isEmpty()) {
        Add("unknown-key", place,
            QStringLiteral("the service passes over this line, since it has no \"=\". A comment "
                           "begins with \";\""));
      }
      return;
    }
    const QString &key = line.key;
    const QString meant = Meant(key);
    if (!line.section.isNull() && !meant.isEmpty()) {
      Add("key-in-section", place,
          QStringLiteral("the service looks for `%1` outside any section and does not see it "
                         "in [%2]. Move the line above the first section, or under [General]")
              .arg(meant, Printable(line.section)),
          EventsOf(meant));
    } else if (!line.section.isNull() || !SettingsKeys().contains(key)) {
      Add("unknown-key", place,
          QStringLiteral("the service does not know the key `%1` and ignores it")
                  .arg(Printable(key)) +
              (meant.isEmpty() ? QString() : QStringLiteral(". Write `%1`").arg(meant)),
          EventsOf(meant));
    } else if (const SettingsLine *const last = file_.LineOf(key); last != &line) {
      Add("repeated-key", place,
          QStringLiteral("line %1 sets `%2` once more, and the last line holds. Remove one of them")
              .arg(QString::number(file_.PlaceAt(last->start).line), key),
          EventsOf(key));
    } else {
      CheckValue(key, line);
    }
  }

  static QString Meant(const QString &key) {
    return SettingsKeys().contains(key) ? key : ClosestTo(key, SettingsKeys());
  }

  void CheckValue(const QString &key, const SettingsLine &line) {
    const QByteArray value = line.Value();
    const QString inForce = Quoted(file_.Entries().value(key));
    const auto add = [&](const char *cause, int index, const QString &sentence) {
      Add(cause, file_.PlaceAt(line.valueStart + index), sentence, EventsOf(key));
    };
    const int comma = line.UnquotedComma();
    if (comma >= 0) {
      const bool isText = IsTextKey(key);
      add("list-value", comma,
          isText
              ? QStringLiteral("the service reads an empty text, since an unquoted comma makes a "
                               "list: put the value in double quotes") +
                    (key == QLatin1String("allowed")
                         ? QStringLiteral(", with blanks between the identifiers")
                         : QString())
              : QStringLiteral("the service reads no number, since an unquoted comma makes a "
                               "list, and `%1` keeps the value from before: write one number")
                    .arg(key));
      return;
    }
    if (IsCut(key, line)) {
      add("cut-at-semicolon", value.size(),
          QStringLiteral("the value of `%1` ends here, since an unquoted semicolon begins a "
                         "comment: put the value in double quotes")
              .arg(key));
    }
    if (const int escape = ChangingEscape(value); escape >= 0) {
      add("changed-by-escape", escape, EscapeSentence(value.mid(escape)));
    }
    if (const int quote = InnerQuote(value); quote >= 0) {
      add("changed-by-escape", quote,
          QStringLiteral("the service reads %1, since a double quote within a value is lost: write "
                         "\\\" for one that is meant, and the whole value in double quotes")
              .arg(inForce));
    }
    if (IsSpecial(value, file_.Entries().value(key))) {
      add("special-value", 0,
          QStringLiteral(
              "the value has a form that the reader of the file keeps for itself, and the "
              "service reads %1 instead. Begin it with another character than \"@\"")
              .arg(inForce));
    }
    if (IsTextKey(key) && IsUtf8BeyondAscii(value) &&
        !file_.Contents().startsWith(kByteOrderMark)) {
      add("not-latin1", FirstBeyondAscii(value),
          QStringLiteral(
              "the service reads each byte above 127 as a character of its own, and %1 "
              "goes out. Write each such character as \\x and its number, as in \\xfc, and "
              "close and open the double quotes before a digit or a letter from a to f")
              .arg(inForce));
    }
  }

  // Where the comment is part of what was meant. A comment behind a blank, a number or a closing
  // double quote is one, but in texts without quotes that may well hold a semicolon.
  static bool IsCut(const QString &key, const SettingsLine &line) {
    const QByteArray value = line.Value();
    if (line.cut.isEmpty() || !IsTextKey(key) || value.trimmed().endsWith('"')) {
      return false;
    }
    if (key == QLatin1String("formatString") || key == QLatin1String("allowed")) {
      return true;
    }
    return value == value.trimmed() && line.cut.trimmed().size() > 1;
  }

  // The first backslash that changes the value, or -1. One before a double quote or a backslash and
  // one that gives the number of a character are meant, and so is one that joins a line without a
  // key.
  static int ChangingEscape(const QByteArray &value) {
    static const QRegularExpression kMeant(
        QStringLiteral("\\\\([\"\\\\]|x(?:[0-9A-Fa-f]{1,2}|[0-9A-Fa-f]{4})(?![0-9A-Fa-f])|"
                       "[\\r\\n]+[^=\\r\\n]*(?=[\\r\\n]|$))"));
    const QString text = QString::fromLatin1(value);
    int at = text.indexOf(QLatin1Char('\\'));
    while (at >= 0) {
      const QRegularExpressionMatch match = kMeant.match(text, at, QRegularExpression::NormalMatch,
                                                         QRegularExpression::AnchoredMatchOption);
      if (!match.hasMatch()) {
        return at;
      }
      at = text.indexOf(QLatin1Char('\\'), at + 2);
    }
    return -1;
  }

  // What becomes of the escape at the beginning of the text.
  static QString EscapeSentence(const QByteArray &text) {
    if (text.startsWith("\\x")) {
      return QStringLiteral(
          "the service takes all hexadecimal digits behind \\x for the number of one character: "
          "close "
          "and open the double quotes behind those that are meant");
    }
    if (text.startsWith("\\\n") || text.startsWith("\\\r")) {
      return QStringLiteral(
          "a backslash at the end of a line joins the next line to it, whose key is lost: remove "
          "the backslash, or write two");
    }
    const bool isKnown = text.size() > 1 && QByteArrayLiteral("abfnrtv01234567").contains(text[1]);
    return (isKnown
                ? QStringLiteral("the service reads %1 as a control character: write \\%1 if the "
                                 "backslash is meant")
                : QStringLiteral("the service reads nothing for %1: write \\%1 if the backslash is "
                                 "meant"))
        .arg(Printable(QString::fromLatin1(text.left(2))));
  }

  // The first double quote that neither begins nor ends the value, or -1. Two that stand together
  // end a character's number.
  static int InnerQuote(const QByteArray &value) {
    const int end = value.trimmed().size() - 1;
    for (int i = 1; i < end; ++i) {
      const bool isPair = value.mid(i, 2) == "\"\"" && i + 1 < end;
      if (value[i] == '\\' || isPair) {
        ++i;
      } else if (value[i] == '"') {
        return i;
      }
    }
    return -1;
  }

  // Whether a value such as "@Invalid()" is read as something else.
  static bool IsSpecial(const QByteArray &value, const QString &inForce) {
    QByteArray text = value.trimmed();
    if (text.size() > 1 && text.startsWith('"') && text.endsWith('"')) {
      text = text.mid(1, text.size() - 2);
    }
    return text.startsWith('@') && !text.contains('\\') && !text.contains('"') &&
           inForce != QString::fromLatin1(text) && inForce != QString::fromUtf8(text);
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
    const SettingsLine *const line = file_.LineOf(key);
    const std::optional<std::int32_t> number = Settings::integerFrom(*entry);
    if (line == nullptr || line->UnquotedComma() >= 0) {
      return;  // that is said already
    }
    if (!number) {
      Add("not-a-number", file_.PlaceOfKey(key),
          QStringLiteral("%1 is no decimal number, and `%2` keeps the value from before. Write %3")
              .arg(Quoted(*entry), key,
                   key.endsWith(QLatin1String("Mon")) ? QStringLiteral("1 for on or 0 for off")
                                                      : QStringLiteral("digits alone")),
          EventsOf(key));
    } else if (*number < least || *number > most) {
      Add("out-of-range", file_.PlaceOfKey(key),
          QStringLiteral("%1 is outside %2 to %3, which is what `%4` may be: %5")
              .arg(*entry, QString::number(least), QString::number(most), key, Effect(key)),
          EventsOf(key));
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
    } else if (!IsAddressOrName(host)) {
      Add("host-not-ipv4", file_.PlaceOfKey(key),
          QStringLiteral(
              "%1 is neither an IPv4 address nor a name, and every line is lost. Write the "
              "address or the name alone, and the port as `port`")
              .arg(Quoted(host)));
    }
  }

  // Names as in RFC 1123, section 2.1, and with underscores, which resolvers take.
  static bool IsAddressOrName(const QString &host) {
    static const QRegularExpression kDigitsAndDots(QStringLiteral("^[0-9.]*$"));
    static const QRegularExpression kName(
        QStringLiteral("^[A-Za-z0-9_-]{1,63}(\\.[A-Za-z0-9_-]{1,63})*\\.?$"));
    in_addr address{};
    return host.contains(kDigitsAndDots) ? inet_aton(host.toLatin1().constData(), &address) != 0
                                         : host.size() < 255 && host.contains(kName);
  }

  const SettingsFile &file_;
  const DefinitionsFile &definitions_;
  Findings &findings_;
};

}  // namespace

const QStringList &SettingsKeys() {
  static const QStringList kKeys =
      QStringLiteral(
          "facility formatString allowed protocol host port usbDevMon vmwSigninMon agentConnMon "
          "perfMon cpuThreshold memThreshold diskThreshold")
          .split(QLatin1Char(' '));
  return kKeys;
}

bool IsTextKey(const QString &key) {
  return key == QLatin1String("formatString") || key == QLatin1String("allowed") ||
         key == QLatin1String("protocol") || key == QLatin1String("host");
}

void CheckSettings(const SettingsFile &settings, const DefinitionsFile &definitions,
                   Findings &findings) {
  SettingsCheck(settings, definitions, findings).CheckAll();
}

}  // namespace ov
