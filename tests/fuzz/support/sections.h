// How an input of libFuzzer is laid out, for every harness alike: sections between lines of "--",
// so that seeds can be read and written with an editor.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace ov::fuzz {

/// The sections, of which there is at least one. Each may hold any bytes but the separator.
std::vector<std::string_view> SectionsOf(const std::uint8_t *data, std::size_t size);

/// The words of a section that says what to do with the others. What is missing reads as 0.
class Options {
 public:
  explicit Options(std::string_view text) : text_(text) {}

  /// Takes one character: whether it is a "1".
  bool Flag();

  /// Takes the next decimal number, with its sign. What does not fit wraps.
  std::int32_t Number();

 private:
  std::string_view text_;
};

/// That many bytes to put in front of a file, so that what follows lies across the end of what Qt
/// reads at once (16 KiB). None for a number that does not lead there.
std::string Padding(std::int32_t number);

}  // namespace ov::fuzz
