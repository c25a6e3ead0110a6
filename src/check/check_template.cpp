#include "check/check_template.h"

#include <QRegularExpression>
#include <string>

#include "check/line_maker.h"
#include "check/stored_answer.h"

namespace ov {
namespace {

constexpr int kUsualLimit = 1024;  // bytes of a line that every collector takes (RFC 3164)

class TemplateCheck {
 public:
  TemplateCheck(const SettingsFile &settings, const DefinitionsFile &definitions,
                const HostIdentity &host, Findings &findings)
      : settings_(settings),
        definitions_(definitions),
        host_(host),
        findings_(findings),
        text_(settings.InForce().formatString()),
        start_(settings.InForce().protocol() == Protocol::kTcp ? text_.trimmed() : text_) {}

  void CheckAll() {
    CheckTokens();
    CheckHeader();
    CheckLineBreaks();
    CheckLines();
  }

 private:
  void Add(const char *cause, const QString &sentence, const QString &text = {}) {
    findings_.Add(cause, settings_.PlaceInKey(QStringLiteral("formatString"), text.toLatin1()),
                  sentence);
  }

  bool Has(const char *token) const { return text_.contains(QLatin1String(token)); }

  void CheckTokens() {
    const QStringList tokens = MessageFormatter().tokens();
    static const QRegularExpression kLikeToken(
        QStringLiteral("\\[ ?[A-Za-z][A-Za-z0-9_:-]* ?\\]|\\{[A-Z]+\\}|%[A-Z]+%"));
    QStringList words;
    for (auto match = kLikeToken.globalMatch(text_); match.hasNext();) {
      words.append(match.next().captured());
    }
    words.removeDuplicates();
    for (const QString &word : qAsConst(words)) {
      if (!tokens.contains(word)) {
        const QString meant = ClosestTo(word, tokens);
        Add("unknown-token",
            QStringLiteral("%1 is no token, and goes out as it stands. %2")
                .arg(word, meant.isEmpty()
                               ? QStringLiteral("The tokens are ") + tokens.join(QLatin1Char(' '))
                               : QStringLiteral("Write ") + meant),
            word);
      }
    }
    if (!start_.startsWith(QLatin1String("<[PRI]>"))) {
      Add("no-priority",
          QStringLiteral("the template does not begin with <[PRI]>: collectors take every line for "
                         "user.notice, or for a number in brackets there. Begin it with <[PRI]>"));
    }
    if (!Has("[ID]")) {
      Add("no-event-id",
          QStringLiteral("the template has no [ID]: nobody can tell at the collector "
                         "which event a line is about. Add it"));
    }
  }

  // The headers that rsyslog and syslog-ng both take: a time as RFC 3164 has it, also behind a
  // blank, or the header of RFC 5424, whose time cannot be ours and whose words hold no blank.
  void CheckHeader() {
    static const QRegularExpression kHeader(
        QStringLiteral("^(<(\\[PRI\\]|[0-9]{1,3})>)?"
                       "( ?\\[DATE\\](:? |$)|"
                       "1 - ((?!\\S*\\[(DATE|DESC|VAL)\\])\\S+ ){4}(-( |$)|\\[\\S+@))"));
    if (!kHeader.match(start_).hasMatch()) {
      Add("no-header",
          QStringLiteral("rsyslog or syslog-ng finds no header here: it takes the time of receipt "
                         "for the event's, and the sender's address or words of the text for the "
                         "host and the program. Write formatString=") +
              Quoted(QLatin1String(kRecommendedTemplate)));
    }
  }

  void CheckLineBreaks() {
    if (text_.contains(QLatin1Char('\n')) || text_.contains(QLatin1Char('\r'))) {
      Add("line-break",
          QStringLiteral("the template holds a line break: over TCP a line feed makes several "
                         "lines of each event, otherwise a control character stands in the line. "
                         "Remove it, and close every double quote"));
    }
  }

  void CheckLines() {
    // As long as values can be, and with a digit in front.
    const std::string values = '1' + std::string(kEventValuesSize - 2, 'v');
    LineMaker maker(settings_.InForce(), host_);
    const auto beginsWithDigit = [](const QByteArray &line) {
      return !line.isEmpty() && line[0] >= '0' && line[0] <= '9';
    };
    bool isNumbered = beginsWithDigit(maker.LineFor(MakeEventRecord("", values.c_str()), {}));
    for (const DefinitionsLine &line : definitions_.Lines()) {
      if (!line.IsDefinition() || definitions_.LineOf(line.Id()) != &line) {
        continue;
      }
      const EventRecord record = MakeEventRecord(line.Id().toLatin1().constData(), values.c_str());
      const QByteArray bytes = maker.LineFor(record, DefinitionFrom(line));
      isNumbered = isNumbered || beginsWithDigit(bytes);
      if (bytes.size() > kUsualLimit) {
        findings_.Add(
            "line-too-long", definitions_.PlaceOf(line, 2),
            QStringLiteral("with %1 bytes of values the line has %2 bytes, more than the "
                           "%3 that every collector takes. Shorten the description or the "
                           "template")
                .arg(values.size())
                .arg(bytes.size())
                .arg(kUsualLimit),
            {line.Id()});
      }
    }
    // RFC 6587, section 3.4.1.
    if (isNumbered && settings_.InForce().protocol() == Protocol::kTcp) {
      Add("starts-with-digit",
          QStringLiteral("lines begin with a digit: over TCP rsyslog takes the number for the "
                         "length of the line, and cuts, joins or drops lines. Begin the template "
                         "with <[PRI]>"));
    }
  }

  const SettingsFile &settings_;
  const DefinitionsFile &definitions_;
  const HostIdentity &host_;
  Findings &findings_;
  const QString text_;
  const QString start_;  // the text as its first line goes out: over TCP without blanks around it
};

}  // namespace

void CheckTemplate(const SettingsFile &settings, const DefinitionsFile &definitions,
                   const HostIdentity &host, Findings &findings) {
  TemplateCheck(settings, definitions, host, findings).CheckAll();
}

}  // namespace ov
