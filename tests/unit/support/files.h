// Files at the paths that the product reads.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace ov {

/// Replaces the file's contents.
void WriteFile(const std::string &path, std::string_view contents);

std::string ReadFile(const std::string &path);

/// Sets the file's modification time, in seconds since the epoch and nanoseconds.
void SetModificationTime(const std::string &path, std::int64_t seconds, long nanoseconds = 0);

/// Replaces the settings file. Each call moves its modification time on by ten seconds: Qt keeps
/// what it read of a file of the same time and size.
void WriteSettings(std::string_view contents);

}  // namespace ov
