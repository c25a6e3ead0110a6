// What a harness says when the product and the harness's own rule disagree.
#pragma once

#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace ov::fuzz {

/// Reports the difference on the standard error of the process and aborts, which libFuzzer takes
/// for a find.
[[noreturn]] void Disagree(const char *what, const std::string &got, const std::string &wanted);

std::string Shown(std::string_view text);

template <typename Number, std::enable_if_t<std::is_arithmetic_v<Number>, bool> = true>
std::string Shown(Number number) {
  return std::to_string(number);
}

template <typename Item>
std::string Shown(const std::vector<Item> &items);

template <typename First, typename Second>
std::string Shown(const std::pair<First, Second> &pair) {
  return Shown(pair.first) + " " + Shown(pair.second);
}

template <typename Item>
std::string Shown(const std::vector<Item> &items) {
  std::string shown = std::to_string(items.size());
  for (const Item &item : items) {
    shown += "\n    " + Shown(item);
  }
  return shown;
}

/// Both are only put into words when they differ: there are thousands of comparisons a second.
template <typename Value>
void ExpectSame(const char *what, const Value &got, const Value &wanted) {
  if (!(got == wanted)) {
    Disagree(what, Shown(got), Shown(wanted));
  }
}

}  // namespace ov::fuzz
