// Settings over a settings file that a test writes, whose time moves on with each write.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "config/settings.h"
#include "support/files.h"
#include "support/output.h"

namespace ov {

constexpr std::int64_t kSomeTime = 1'600'000'000;

class SettingsTest : public testing::Test {
 protected:
  SettingsTest() { std::remove(kSettingsPath); }

  // Each write moves the file's time on by ten seconds, as if that much time had passed.
  void Write(std::string_view contents) {
    time_ += 10;
    WriteAt(contents, time_);
  }

  static void WriteAt(std::string_view contents, std::int64_t seconds, long nanoseconds = 0) {
    WriteFile(kSettingsPath, contents);
    SetModificationTime(kSettingsPath, seconds, nanoseconds);
  }

  Output Parse() {
    return OutputOf([this] { settings_.parseSettings(); });
  }

  Output Parse(std::string_view contents) {
    Write(contents);
    return Parse();
  }

  bool Changed() { return settings_.settingsChanged(); }

  // Which of the identifiers are allowed, in their order.
  std::vector<std::string> AllowedOf(const std::vector<std::string> &ids) const {
    std::vector<std::string> allowed;
    for (const std::string &id : ids) {
      if (settings_.isAllowed(id.c_str())) {
        allowed.push_back(id);
      }
    }
    return allowed;
  }

  Settings settings_;

 private:
  // For all tests of a process: Qt keeps what it read of a file of the same time and size.
  static inline std::int64_t time_ = kSomeTime;
};

}  // namespace ov
