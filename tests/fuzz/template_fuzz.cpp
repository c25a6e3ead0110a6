// Templates and how they are rendered. Sections: which of the eight tokens have a value (as in
// "11111111"), their values in the tokens' order, then one template after the other.
#include <array>
#include <map>

#include "output/message_formatter.h"
#include "support/expect.h"
#include "support/sections.h"
#include "support/text.h"

namespace ov::fuzz {
namespace {

using Pieces = std::vector<std::string>;
using Values = std::map<std::string, std::string>;

const std::array<std::string, 8> kTokens = {"[PRI]", "[DATE]", "[ID]",   "[DESC]",
                                            "[VAL]", "[SEV]",  "[NAME]", "[IP]"};

// Appends the pieces of a text in which the tokens before this one do not occur: the first
// occurrence of the token parts the text in two, each of which is cut in the same way.
void Cut(const std::string &text, std::size_t index, Pieces &pieces) {
  const std::string &token = kTokens[index];
  const std::size_t found = text.find(token);
  if (found != std::string::npos) {
    Cut(text.substr(0, found), index, pieces);
    pieces.push_back(token);
    Cut(text.substr(found + token.size()), index, pieces);
  } else if (index + 1 < kTokens.size()) {
    Cut(text, index + 1, pieces);
  } else {
    pieces.push_back(text);
  }
}

std::string Rendered(const Pieces &pieces, const Values &values) {
  std::string line;
  for (const std::string &piece : pieces) {
    const auto value = values.find(piece);
    line += value == values.end() ? piece : value->second;
  }
  return line;
}

Pieces PiecesOf(const MessageFormatter &formatter) {
  Pieces pieces;
  for (const QString &piece : formatter.Pieces()) {
    pieces.push_back(Utf8(piece));
  }
  return pieces;
}

void Run(const std::vector<std::string_view> &sections) {
  Options options(sections[0]);
  Values wantedValues;
  TokenValues values;
  std::size_t next = 1;
  for (const std::string &token : kTokens) {
    const std::string_view value = next < sections.size() ? sections[next++] : std::string_view();
    if (options.Flag()) {
      wantedValues[token] = Decoded(value);
      values.insert(Unicode(token), Unicode(value));
    }
  }
  MessageFormatter formatter;
  ExpectSame("line without a template", Utf8(formatter.Render(values)), std::string());
  for (; next < sections.size(); ++next) {
    Pieces wanted;
    Cut(Decoded(sections[next]), 0, wanted);
    formatter.SetTemplate(Unicode(sections[next]));
    ExpectSame("pieces", PiecesOf(formatter), wanted);
    ExpectSame("line", Utf8(formatter.Render(values)), Rendered(wanted, wantedValues));
  }
}

}  // namespace
}  // namespace ov::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  ov::fuzz::Run(ov::fuzz::SectionsOf(data, size));
  return 0;
}
