#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "config/settings_fixture.h"

namespace ov {
namespace {

// --- Keys that are numbers ---------------------------------------------------------------------

struct NumberKey {
  std::string name;
  std::int32_t fallback;
  std::function<std::int32_t(const Settings &)> value;
};

void PrintTo(const NumberKey &key, std::ostream *stream) { *stream << key.name; }

std::string NameOf(const testing::TestParamInfo<NumberKey> &info) { return info.param.name; }

class NumberKeyTest : public SettingsTest, public testing::WithParamInterface<NumberKey> {
 protected:
  std::int32_t ValueAfter(const std::string &text) {
    Parse(GetParam().name + "=" + text + "\n");
    return GetParam().value(settings_);
  }
};

const NumberKey kNumberKeys[] = {
    {"facility", 3, &Settings::facility},
    {"port", 514, &Settings::port},
    {"cpuThreshold", 80, &Settings::cpuThreshold},
    {"memThreshold", 80, &Settings::memThreshold},
    {"diskThreshold", 80, &Settings::diskThreshold},
};

INSTANTIATE_TEST_SUITE_P(Keys, NumberKeyTest, testing::ValuesIn(kNumberKeys), NameOf);

TEST_P(NumberKeyTest, HasItsDefaultWithoutAFile) {
  Parse();
  EXPECT_EQ(GetParam().value(settings_), GetParam().fallback);
}

TEST_P(NumberKeyTest, TakesADecimalInteger) { EXPECT_EQ(ValueAfter("42"), 42); }

TEST_P(NumberKeyTest, IsNotRangeChecked) { EXPECT_EQ(ValueAfter("70000"), 70000); }

TEST_P(NumberKeyTest, TakesANegativeNumber) { EXPECT_EQ(ValueAfter("-7"), -7); }

TEST_P(NumberKeyTest, TakesTheLargestNumber) { EXPECT_EQ(ValueAfter("2147483647"), 2147483647); }

TEST_P(NumberKeyTest, TakesTheSmallestNumber) {
  EXPECT_EQ(ValueAfter("-2147483648"), -2147483647 - 1);
}

TEST_P(NumberKeyTest, TakesANumberAmongBlanks) { EXPECT_EQ(ValueAfter(" 42 "), 42); }

TEST_P(NumberKeyTest, TakesANumberAmongQuotedBlanks) { EXPECT_EQ(ValueAfter("\" 42 \""), 42); }

TEST_P(NumberKeyTest, ReadsLeadingZerosAsDecimal) { EXPECT_EQ(ValueAfter("0042"), 42); }

TEST_P(NumberKeyTest, KeepsItsValueWhenTheKeyIsRemoved) {
  ValueAfter("42");
  Parse("host=collector\n");
  EXPECT_EQ(GetParam().value(settings_), 42);
}

TEST_P(NumberKeyTest, KeepsItsValueWhenTheFileIsRemoved) {
  ValueAfter("42");
  std::remove(kSettingsPath);
  Parse();
  EXPECT_EQ(GetParam().value(settings_), 42);
}

TEST_P(NumberKeyTest, KeepsItsLastValueWhenTheNewOneIsInvalid) {
  ValueAfter("42");
  EXPECT_EQ(ValueAfter("many"), 42);
}

TEST_P(NumberKeyTest, HasNoEffectInASection) {
  Parse("[syslog]\n" + GetParam().name + "=42\n");
  EXPECT_EQ(GetParam().value(settings_), GetParam().fallback);
}

TEST_P(NumberKeyTest, HasEffectInTheGeneralSection) {
  Parse("[General]\n" + GetParam().name + "=42\n");
  EXPECT_EQ(GetParam().value(settings_), 42);
}

TEST_P(NumberKeyTest, IsNotTakenUnderAnotherCase) {
  std::string upper = GetParam().name;
  upper[0] = static_cast<char>(upper[0] - 'a' + 'A');
  Parse(upper + "=42\n");
  EXPECT_EQ(GetParam().value(settings_), GetParam().fallback);
}

class InvalidNumberTest : public SettingsTest, public testing::WithParamInterface<const char *> {};

TEST_P(InvalidNumberTest, LeavesEveryNumberAsItWas) {
  std::string contents;
  for (const NumberKey &key : kNumberKeys) {
    contents += key.name + "=" + GetParam() + "\n";
  }
  Parse(contents);
  for (const NumberKey &key : kNumberKeys) {
    EXPECT_EQ(key.value(settings_), key.fallback) << key.name;
  }
}

TEST_P(InvalidNumberTest, IsPassedOverWithoutAMessage) {
  EXPECT_EQ(Parse(std::string("port=") + GetParam() + "\n").err, "");
}

INSTANTIATE_TEST_SUITE_P(Texts, InvalidNumberTest,
                         testing::Values("", "abc", "0x10", "8o", "true", "1e3", "1.5", "42.0",
                                         "4 2", "42x", "x42", "--1", "2147483648", "-2147483649",
                                         "99999999999999999999", "1,2"));

// --- Monitor switches --------------------------------------------------------------------------

struct SwitchKey {
  std::string name;
  std::function<bool(const Settings &)> on;
};

void PrintTo(const SwitchKey &key, std::ostream *stream) { *stream << key.name; }

class SwitchKeyTest : public SettingsTest, public testing::WithParamInterface<SwitchKey> {
 protected:
  bool OnAfter(const std::string &text) {
    Parse(GetParam().name + "=" + text + "\n");
    return GetParam().on(settings_);
  }
};

const SwitchKey kSwitchKeys[] = {
    {"usbDevMon", &Settings::usbDevMon},
    {"vmwSigninMon", &Settings::vmwSigninMon},
    {"agentConnMon", &Settings::agentConnMon},
    {"perfMon", &Settings::perfMon},
};

INSTANTIATE_TEST_SUITE_P(Keys, SwitchKeyTest, testing::ValuesIn(kSwitchKeys),
                         [](const auto &key) { return key.param.name; });

TEST_P(SwitchKeyTest, IsOffByDefault) { EXPECT_FALSE(GetParam().on(settings_)); }

TEST_P(SwitchKeyTest, OneIsOn) { EXPECT_TRUE(OnAfter("1")); }

TEST_P(SwitchKeyTest, LargerNumberIsOn) { EXPECT_TRUE(OnAfter("2")); }

TEST_P(SwitchKeyTest, ZeroIsOff) {
  OnAfter("1");
  EXPECT_FALSE(OnAfter("0"));
}

TEST_P(SwitchKeyTest, NegativeNumberIsOff) {
  OnAfter("1");
  EXPECT_FALSE(OnAfter("-1"));
}

TEST_P(SwitchKeyTest, WordTrueDoesNotTurnItOn) { EXPECT_FALSE(OnAfter("true")); }

TEST_P(SwitchKeyTest, WordFalseDoesNotTurnItOff) {
  OnAfter("1");
  EXPECT_TRUE(OnAfter("false"));
}

TEST_P(SwitchKeyTest, StaysOnWhenTheKeyIsRemoved) {
  OnAfter("1");
  Parse("port=514\n");
  EXPECT_TRUE(GetParam().on(settings_));
}

TEST_P(SwitchKeyTest, OthersStayOff) {
  OnAfter("1");
  const auto on = std::count_if(std::begin(kSwitchKeys), std::end(kSwitchKeys),
                                [this](const SwitchKey &key) { return key.on(settings_); });
  EXPECT_EQ(on, 1);
}

TEST_P(SwitchKeyTest, HasNoEffectInASection) {
  Parse("[monitors]\n" + GetParam().name + "=1\n");
  EXPECT_FALSE(GetParam().on(settings_));
}

}  // namespace
}  // namespace ov
