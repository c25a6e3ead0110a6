// Files at the paths that the product reads.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace ov {

/// Replaces the file's contents.
void WriteFile(const std::string &path, std::string_view contents);

/// Sets the file's modification time, in seconds since the epoch and nanoseconds.
void SetModificationTime(const std::string &path, std::int64_t seconds, long nanoseconds = 0);

/// 16 KiB in which every byte value occurs, in no order that means anything, without a line feed.
std::string BinaryNoise();

}  // namespace ov
