// Texts as the harnesses' own rules see them: UTF-8 in plain strings. Made without Qt, so that a
// mistake in how the product uses Qt cannot hide in both.
#pragma once

#include <QString>
#include <string>
#include <string_view>
#include <vector>

namespace ov::fuzz {

/// The UTF-8 of what reading the bytes as UTF-8 gives: without a byte order mark in front, and with
/// U+FFFD for each byte that belongs to no character.
std::string Decoded(std::string_view bytes);

/// The lines of a text file as the product reads them, decoded one by one. Carriage returns belong
/// to the line ends wherever they stand, and a line feed that ends the file begins no line.
std::vector<std::string> FileLines(std::string_view file);

/// Without the white space at both ends (the Unicode property White_Space).
std::string_view Trimmed(std::string_view utf8);

/// The pieces between the separators, one more than there are separators.
std::vector<std::string_view> Split(std::string_view text, char separator);

/// What a C string of these bytes holds.
std::string_view UpToNul(std::string_view bytes);

/// The text as a debug message shows it, in double quotes. Only what is beyond ASCII is left to Qt,
/// whose tables tell what can be printed.
std::string Quoted(std::string_view utf8);

inline std::string Utf8(const QString &text) { return text.toStdString(); }

inline QString Unicode(std::string_view utf8) {
  return QString::fromUtf8(utf8.data(), static_cast<int>(utf8.size()));
}

}  // namespace ov::fuzz
