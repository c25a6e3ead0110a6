#include "support/files.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <array>
#include <fstream>
#include <iterator>

#include "config/settings.h"

namespace ov {

void WriteFile(const std::string &path, std::string_view contents) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file.write(contents.data(), static_cast<std::streamsize>(contents.size()));
  file.close();
  ASSERT_TRUE(file) << "cannot write " << path;
}

std::string ReadFile(const std::string &path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void SetModificationTime(const std::string &path, std::int64_t seconds, long nanoseconds) {
  const timespec time{seconds, nanoseconds};
  const std::array<timespec, 2> accessAndModification{time, time};
  ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), accessAndModification.data(), 0), 0) << path;
}

void WriteSettings(std::string_view contents) {
  static std::int64_t time = 1'600'000'000;
  WriteFile(kSettingsPath, contents);
  SetModificationTime(kSettingsPath, time += 10);
}

}  // namespace ov
