#include "support/sections.h"

namespace ov::fuzz {

std::vector<std::string_view> SectionsOf(const std::uint8_t *data, std::size_t size) {
  constexpr std::string_view kSeparator = "\n--\n";
  std::string_view rest(reinterpret_cast<const char *>(data), size);
  std::vector<std::string_view> sections;
  for (std::size_t end = rest.find(kSeparator); end != std::string_view::npos;
       end = rest.find(kSeparator)) {
    sections.push_back(rest.substr(0, end));
    rest.remove_prefix(end + kSeparator.size());
  }
  sections.push_back(rest);
  return sections;
}

bool Options::Flag() {
  if (text_.empty()) {
    return false;
  }
  const bool set = text_.front() == '1';
  text_.remove_prefix(1);
  return set;
}

std::int32_t Options::Number() {
  constexpr std::string_view kDigits = "0123456789";
  const std::size_t start = text_.find_first_of(kDigits);
  if (start == std::string_view::npos) {
    return 0;
  }
  const bool negative = start > 0 && text_[start - 1] == '-';
  text_.remove_prefix(start);
  std::uint32_t number = 0;
  while (!text_.empty() && kDigits.find(text_.front()) != std::string_view::npos) {
    number = number * 10 + static_cast<std::uint32_t>(text_.front() - '0');
    text_.remove_prefix(1);
  }
  return static_cast<std::int32_t>(negative ? 0 - number : number);
}

std::string Padding(std::int32_t number) {
  constexpr std::int32_t kBuffer = 16384;  // bytes
  constexpr std::int32_t kBefore = 64;
  return number < kBuffer - kBefore || number > kBuffer
             ? std::string()
             : std::string(static_cast<std::size_t>(number), 'x');
}

}  // namespace ov::fuzz
