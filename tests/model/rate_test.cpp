#include "model/rate.h"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <string>
#include <vector>

namespace quenby {
namespace {

constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr std::int64_t kMin64 = std::numeric_limits<std::int64_t>::min();

template <typename Value>
struct Row {
  std::string text;
  Value value;
};

// Texts that hold no number, or one that no double can hold.
const std::vector<std::string> kNoNumbers = {
    "",
    " ",
    "\t\r\n",
    "kbit",
    "kbit 5",
    "Unknown!",
    "k100",
    "-",
    "+",
    ".",
    "e5",
    "- 5",
    "--5",
    "+-5",
    "$5",
    "=5",
    "in",
    "na",
    "_5",
    "\xc2\xa0"
    "5",
    std::string("\0"
                "5",
                2),
    "1e309",
    "1e999",
    "1e-400",
    "-1e-400",
    "1" + std::string(400, '0'),
    "0x1p2000",
    "0x1p-2000",
};

std::string long_number() { return "1" + std::string(299, '0'); }

// What the rest is before; it stays so where nothing follows the number.
const std::string kBefore = "before";

TEST(GetNum, ReadsTheNumberAtTheStartAndHandsBackWhatFollows) {
  const struct {
    std::string text;
    double value;
    std::string rest = kBefore;
  } rows[] = {
      {"0", 0.0},
      {"-0", 0.0},
      {"2000", 2000.0},
      {"+5", 5.0},
      {"-5", -5.0},
      {"1.5", 1.5},
      {".5", 0.5},
      {"5.", 5.0},
      {"007", 7.0},
      {"1e3", 1000.0},
      {"1E+3", 1000.0},
      {"2.5e-1", 0.25},
      {"0x10", 16.0},
      {"0X1.8P1", 3.0},
      {"-0x10", -16.0},
      {long_number(), 1e299},
      {"1e308", 1e308},
      {"-1e999", -kInf},
      // Too small for a normal double.
      {"1e-310", 1e-310},
      {"4.9e-324", std::numeric_limits<double>::denorm_min()},
      {"-4.9e-324", -std::numeric_limits<double>::denorm_min()},
      {"inf", kInf},
      {"INFINITY", kInf},
      {"-inf", -kInf},
      // White space at both ends goes.
      {" 2000", 2000.0},
      {"2000 ", 2000.0},
      {"\t 2000 \r\n", 2000.0},
      {"\v\f2000\v\f", 2000.0},
      {"100kbit", 100.0, "kbit"},
      {"100mbit", 100.0, "mbit"},
      {"100 kbit", 100.0, " kbit"},
      {"10000 Mb/s", 10000.0, " Mb/s"},
      {"12 34", 12.0, " 34"},
      {" 5 x ", 5.0, " x"},
      {"-5kbit\n", -5.0, "kbit"},
      {"1,5", 1.0, ",5"},
      {"1.5.7", 1.5, ".7"},
      {"1e", 1.0, "e"},
      {"1e+", 1.0, "e+"},
      {"0x", 0.0, "x"},
      {"0xg", 0.0, "xg"},
      {"0x1p", 1.0, "p"},
      {"5-3", 5.0, "-3"},
      {"9%", 9.0, "%"},
      {"7;rm", 7.0, ";rm"},
      {"infinit", kInf, "init"},
      {"1e-310q", 1e-310, "q"},
      // The text ends at a NUL byte.
      {std::string("5\0x", 3), 5.0},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    EXPECT_EQ(get_num(row.text), row.value);
    std::string rest = kBefore;
    EXPECT_EQ(get_num(row.text, rest), row.value);
    EXPECT_EQ(rest, row.rest);
  }
}

TEST(GetNum, GivesMinusOneWhereThereIsNoNumber) {
  for (const std::string& text : kNoNumbers) {
    SCOPED_TRACE(text);
    EXPECT_EQ(get_num(text), -1.0);
    std::string rest = kBefore;
    EXPECT_EQ(get_num(text, rest), -1.0);
    EXPECT_EQ(rest, kBefore);
  }
}

TEST(GetNum, KnowsTheWordForNotANumber) {
  for (const char* text : {"nan", "NaN", "nanny"}) EXPECT_TRUE(std::isnan(get_num(text))) << text;
}

TEST(GetRate, IsInBitsPerSecond) {
  const std::vector<Row<std::int64_t>> rows = {
      {"0", 0},
      {"2000", 2'000'000},
      {"1.5", 1500},
      {"0.0009", 0},
      {"0x10", 16'000},
      {"1e3", 1'000'000},
      {"9e15", 9'000'000'000'000'000'000},
      {"1e-310", 0},
      {"100mbit", 100'000},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    EXPECT_EQ(getRate(row.text), row.value);
  }
}

TEST(GetRate, IsMinusOneForANegativeOrUnusableNumber) {
  for (const char* text : {"-5", "-0.001", "-inf", "-1e999", "-0x1", "-1e300"})
    EXPECT_EQ(getRate(text), -1) << text;
  for (const std::string& text : kNoNumbers) EXPECT_EQ(getRate(text), -1) << text;
}

TEST(SetRate, StoresBitsPerSecond) {
  const std::vector<Row<std::int64_t>> rows = {
      {"2000", 2'000'000},  {"0", 0},       {"1.5", 1500},   {" 7\t", 7000},
      {"100kbit", 100'000}, {"", -1},       {"letters", -1}, {"-5", -1},
      {"1e999", -1},        {"1e-400", -1},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    std::int64_t rate = 77;
    EXPECT_TRUE(_set_rate(row.text, rate));
    EXPECT_EQ(rate, row.value);
  }
}

// 2^63 bit/s is about 9.22e15 kbit/s.
TEST(SetRate, RefusesARateBeyond64Bits) {
  for (const std::string& text : std::vector<std::string>{
           "1e16", "9.3e15", "1e300", "1.7e308", "inf", "Infinity", "nan", "NAN", "0x1p70",
           "99999999999999999999", long_number(), "1e20mbit"}) {
    SCOPED_TRACE(text);
    std::int64_t rate = 77;
    EXPECT_FALSE(_set_rate(text, rate));
    EXPECT_EQ(rate, 77);
  }
}

const std::vector<std::string> kNegative = {"-1",     "-0.5", "-1e-310", "-0x1", "-inf",
                                            "-1e999", "-1 ",  "nan",     "-nan", "NaN(5)"};

TEST(ParseBurstSize, StoresWholeBytes) {
  const std::vector<Row<std::int64_t>> rows = {
      {"0", 0},
      {"-0", 0},
      {"1500", 1500},
      {"1500.9", 1500},
      {"0.9", 0},
      {" 1500\n", 1500},
      {"1500 bytes", 1500},
      {"0x10", 16},
      {"1e3", 1000},
      {"1e-310", 0},
      {"4294967296", 4'294'967'296},
      {"9e18", 9'000'000'000'000'000'000},
      // Beyond 64 bits, as the processor does it.
      {"1e19", kMin64},
      {"1e300", kMin64},
      {"inf", kMin64},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    std::int64_t size = 77;
    EXPECT_TRUE(parseBurstSize(row.text, size));
    EXPECT_EQ(size, row.value);
  }
}

TEST(ParseNonNegative, StoresTheNumber) {
  const std::vector<Row<double>> rows = {
      {"0", 0.0},       {"-0", 0.0},      {"4", 4.0},     {"2.5", 2.5},       {" 2.5 ", 2.5},
      {"4 users", 4.0}, {"1e300", 1e300}, {"0x1.8", 1.5}, {"1e-310", 1e-310}, {"inf", kInf},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    double number = 77.0;
    EXPECT_TRUE(parseNonNegative(row.text, number));
    EXPECT_EQ(number, row.value);
  }
}

TEST(ParseNonNegative, RefusesEmptyNonNumericAndNegativeTextsAsABurstSizeDoes) {
  for (const auto* texts : {&kNoNumbers, &kNegative}) {
    for (const std::string& text : *texts) {
      SCOPED_TRACE(text);
      double number = 77.0;
      EXPECT_FALSE(parseNonNegative(text, number));
      EXPECT_EQ(number, 77.0);
      std::int64_t size = 77;
      EXPECT_FALSE(parseBurstSize(text, size));
      EXPECT_EQ(size, 77);
    }
  }
}

}  // namespace
}  // namespace quenby
