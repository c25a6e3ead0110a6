#include "support/text.h"

#include <QDebug>
#include <algorithm>
#include <array>
#include <cstdint>

namespace ov::fuzz {
namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr std::string_view kReplacement = "\xEF\xBF\xBD";

// Beyond the control characters and the blank.
constexpr std::array<std::string_view, 19> kWhiteSpace = {
    "\xC2\x85",     "\xC2\xA0",     "\xE1\x9A\x80", "\xE2\x80\x80", "\xE2\x80\x81",
    "\xE2\x80\x82", "\xE2\x80\x83", "\xE2\x80\x84", "\xE2\x80\x85", "\xE2\x80\x86",
    "\xE2\x80\x87", "\xE2\x80\x88", "\xE2\x80\x89", "\xE2\x80\x8A", "\xE2\x80\xA8",
    "\xE2\x80\xA9", "\xE2\x80\xAF", "\xE2\x81\x9F", "\xE3\x80\x80"};

bool StartsWith(std::string_view text, std::string_view start) {
  return text.substr(0, start.size()) == start;
}

bool EndsWith(std::string_view text, std::string_view end) {
  return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

bool Within(char byte, unsigned first, unsigned last) {
  const auto value = static_cast<unsigned char>(byte);
  return first <= value && value <= last;
}

// A kind of well-formed sequence of several bytes (RFC 3629, section 4), of which each byte that
// is not told here is 80 to BF.
struct Form {
  unsigned firstLead;
  unsigned lastLead;
  unsigned firstSecond;
  unsigned lastSecond;
  std::size_t size;
};

constexpr std::array<Form, 8> kForms = {{{0xC2, 0xDF, 0x80, 0xBF, 2},
                                         {0xE0, 0xE0, 0xA0, 0xBF, 3},
                                         {0xE1, 0xEC, 0x80, 0xBF, 3},
                                         {0xED, 0xED, 0x80, 0x9F, 3},
                                         {0xEE, 0xEF, 0x80, 0xBF, 3},
                                         {0xF0, 0xF0, 0x90, 0xBF, 4},
                                         {0xF1, 0xF3, 0x80, 0xBF, 4},
                                         {0xF4, 0xF4, 0x80, 0x8F, 4}}};

// The size of the character beyond ASCII in front, 0 if there is none.
std::size_t CharacterSize(std::string_view bytes) {
  for (const Form &form : kForms) {
    if (Within(bytes[0], form.firstLead, form.lastLead)) {
      bool wellFormed =
          bytes.size() >= form.size && Within(bytes[1], form.firstSecond, form.lastSecond);
      for (std::size_t i = 2; wellFormed && i < form.size; ++i) {
        wellFormed = Within(bytes[i], 0x80, 0xBF);
      }
      return wellFormed ? form.size : 0;
    }
  }
  return 0;
}

// The size of the white space character in front, or at the end; 0 if there is none.
template <typename Matches>
std::size_t SpaceSize(char edge, Matches matches) {
  if (edge == ' ' || Within(edge, '\t', '\r')) {
    return 1;
  }
  for (const std::string_view space : kWhiteSpace) {
    if (matches(space)) {
      return space.size();
    }
  }
  return 0;
}

bool IsPlain(char byte) { return Within(byte, ' ', '~'); }

}  // namespace

std::string Decoded(std::string_view bytes) {
  if (StartsWith(bytes, kByteOrderMark)) {
    bytes.remove_prefix(kByteOrderMark.size());
  }
  std::string text;
  for (std::size_t i = 0; i < bytes.size();) {
    if (Within(bytes[i], 0, 0x7F)) {
      text += bytes[i++];
      continue;
    }
    const std::size_t size = CharacterSize(bytes.substr(i));
    text += size == 0 ? kReplacement : bytes.substr(i, size);
    i += std::max<std::size_t>(size, 1);
  }
  return text;
}

std::vector<std::string> FileLines(std::string_view file) {
  std::string bytes(file);
  bytes.erase(std::remove(bytes.begin(), bytes.end(), '\r'), bytes.end());
  std::vector<std::string> lines;
  for (const std::string_view line : Split(bytes, '\n')) {
    lines.push_back(Decoded(line));
  }
  if (bytes.empty() || bytes.back() == '\n') {
    lines.pop_back();
  }
  return lines;
}

std::string_view Trimmed(std::string_view utf8) {
  while (!utf8.empty()) {
    const auto atStart = [utf8](std::string_view space) { return StartsWith(utf8, space); };
    const std::size_t size = SpaceSize(utf8.front(), atStart);
    if (size == 0) {
      break;
    }
    utf8.remove_prefix(size);
  }
  while (!utf8.empty()) {
    const auto atEnd = [utf8](std::string_view space) { return EndsWith(utf8, space); };
    const std::size_t size = SpaceSize(utf8.back(), atEnd);
    if (size == 0) {
      break;
    }
    utf8.remove_suffix(size);
  }
  return utf8;
}

std::vector<std::string_view> Split(std::string_view text, char separator) {
  std::vector<std::string_view> pieces;
  for (std::size_t end = text.find(separator); end != std::string_view::npos;
       end = text.find(separator)) {
    pieces.push_back(text.substr(0, end));
    text.remove_prefix(end + 1);
  }
  pieces.push_back(text);
  return pieces;
}

std::string_view UpToNul(std::string_view bytes) { return bytes.substr(0, bytes.find('\0')); }

std::string Quoted(std::string_view utf8) {
  std::string quoted = "\"";
  for (const char byte : utf8) {
    const std::size_t escape = std::string_view("\b\f\n\r\t\"\\").find(byte);
    if (escape != std::string_view::npos) {
      quoted += {'\\', "bfnrt\"\\"[escape]};
    } else if (IsPlain(byte)) {
      quoted += byte;
    } else {
      QString byQt;  // of the text behind a byte order mark, which decoding drops
      QDebug(&byQt).nospace() << Unicode(std::string(kByteOrderMark).append(utf8));
      return Utf8(byQt);
    }
  }
  return quoted + '"';
}

}  // namespace ov::fuzz
