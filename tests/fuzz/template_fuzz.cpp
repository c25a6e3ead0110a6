// Templates and how they are rendered. Sections: which of the eight tokens have a value (as in
// "11111111"), their values in the order of the tokens, then one template after the other.
#include "output/message_formatter.h"
#include "support.h"

namespace ov::fuzz {
namespace {

// Renders a text in which the tokens before this one do not occur: the first occurrence of the
// token parts the text in two, each of which is rendered in the same way.
QString Rendered(const QString &text, QStringList tokens, const TokenValues &values) {
  if (tokens.isEmpty()) {
    return text;
  }
  const QString token = tokens.constFirst();
  const int found = text.indexOf(token);
  if (found < 0) {
    tokens.removeFirst();
    return Rendered(text, tokens, values);
  }
  return Rendered(text.left(found), tokens, values) + values.value(token, token) +
         Rendered(text.mid(found + token.size()), tokens, values);
}

}  // namespace

void Run(const Sections &sections) {
  const QStringList tokens =
      QStringLiteral("[PRI] [DATE] [ID] [DESC] [VAL] [SEV] [NAME] [IP]").split(QLatin1Char(' '));
  Options options(sections[0]);
  TokenValues values;
  std::size_t next = 1;
  for (const QString &token : tokens) {
    const QByteArray value = next < sections.size() ? sections[next++] : QByteArray();
    if (options.Flag()) {
      values.insert(token, Text(value));
    }
  }
  MessageFormatter formatter;
  ExpectSame("line without a template", formatter.Render(values), QString());
  for (; next < sections.size(); ++next) {
    const QString text = Text(sections[next]);
    formatter.SetTemplate(text);
    ExpectSame("line", formatter.Render(values), Rendered(text, tokens, values));
  }
}

}  // namespace ov::fuzz
