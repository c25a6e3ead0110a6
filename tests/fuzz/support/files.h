// Files at the paths that the product reads.
#pragma once

#include <cstdint>
#include <string_view>

namespace ov::fuzz {

/// Replaces the file's contents.
void WriteFile(const char *path, std::string_view contents);

/// Sets the file's modification time. No two calls in a row give the same: their fractions of a
/// second differ, since Qt's INI reader takes a file of the same time and size for read already.
void SetModificationSecond(const char *path, std::int64_t second);

void RemoveFile(const char *path);

}  // namespace ov::fuzz
