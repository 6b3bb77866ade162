#include "model/tariff_settings.h"

#include <arpa/inet.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <optional>

#include "tests/support/tariffs.h"

namespace quenby {
namespace {

using test::tariff;
using testing::ElementsAre;
using testing::IsEmpty;

void expect_id(const TariffSettings& t, int id) {
  EXPECT_EQ(t.id, id);
  EXPECT_EQ(t.download.id, id);
  EXPECT_EQ(t.upload.id, id);
}

// What a tariff of number 9 makes of a number or a text; a refused one changes nothing.
template <typename Number>
void expect_set_id(const Number& given, std::optional<int> id) {
  SCOPED_TRACE(given);
  TariffSettings t = tariff("a", 9);
  EXPECT_EQ(t.setID(given), id.has_value());
  expect_id(t, id.value_or(9));
}

TEST(SetIDFromText, StoresTheNumberInTheTariffAndBothDirections) {
  const struct {
    std::string text;
    int id;
  } rows[] = {{"1", 1},   {"4", 4},     {"15999", 15'999}, {"15999.7", 15'999}, {"4.5", 4},
              {" 7 ", 7}, {"0x10", 16}, {"1e3", 1000},     {"12abc", 12},       {"+5", 5}};
  for (const auto& row : rows) expect_set_id(row.text, row.id);
}

TEST(SetIDFromText, RefusesEverythingElse) {
  for (const std::string text :
       {"0", "0.9", "16000", "-3", "-0.5", "1e12", "1e300", "2147483648", "4294967300", "inf",
        "nan", "", " ", "id", "#4", "1e-310", "1e999", "99999999999999999999999"})
    expect_set_id(text, std::nullopt);
}

TEST(SetID, TakesNumbersFrom1To15999) {
  for (const int number : {1, 2, 3, 15'999}) expect_set_id(number, number);
  for (const int number : {0, -3, 16'000, std::numeric_limits<int>::max()})
    expect_set_id(number, std::nullopt);
}

TEST(SetIDFromTariff, CopiesTheNumberOfTheSameName) {
  TariffSettings t = tariff("a", 9);
  EXPECT_TRUE(t.setID(tariff("a", 12)));
  expect_id(t, 12);
  EXPECT_FALSE(t.setID(tariff("A", 13)));
  EXPECT_FALSE(t.setID(tariff("", 13)));
  EXPECT_FALSE(t.setID(tariff("ab", 13)));
  expect_id(t, 12);
}

// A tariff of factor 4 after an aggregation text, which it keeps in any case.
void expect_aggregation(const std::string& text, bool taken, double factor) {
  SCOPED_TRACE(text);
  TariffSettings t;
  t.setAggregation("4");
  EXPECT_EQ(t.setAggregation(text), taken);
  EXPECT_EQ(t.download.aggregation, factor);
  EXPECT_EQ(t.upload.aggregation, factor);
  EXPECT_EQ(t.aggregation_text, text);
}

TEST(SetAggregation, SetsTheFactorOfBothDirectionsAndKeepsTheText) {
  const struct {
    const char* text;
    double factor;
  } rows[] = {{"4", 4.0},       {"2.50", 2.5},
              {"0.5", 0.5},     {"0x2", 2.0},
              {"1e300", 1e300}, {"1e-310", 1e-310},
              {"4 users", 4.0}, {"inf", std::numeric_limits<double>::infinity()}};
  for (const auto& row : rows) expect_aggregation(row.text, true, row.factor);
}

TEST(SetAggregation, AcceptsZeroWithoutChangingTheFactor) {
  for (const char* text : {"0", "0.0", "-0"}) expect_aggregation(text, true, 4.0);
}

TEST(SetAggregation, KeepsTheTextOfARefusedNumber) {
  for (const char* text :
       {"letters", "", " ", "-1", "-0.5", "nan", "-inf", "1e999", "1e-400", "- 1", ":4", "x4"})
    expect_aggregation(text, false, 4.0);
}

void expect_qdisc(const TariffSettings& t, int kind, const std::string& name) {
  EXPECT_EQ(t.qdisc, kind);
  EXPECT_EQ(t.download.qdisc, kind);
  EXPECT_EQ(t.upload.qdisc, kind);
  EXPECT_EQ(t.qdisc_str(), name);
}

TEST(SetQDisc, KnowsThreeKinds) {
  const char* const names[] = {"pfifo", "sfq", "fq_codel"};
  for (int kind = 1; kind <= 3; ++kind) {
    TariffSettings t;
    EXPECT_TRUE(t.setQDisc(names[kind - 1]));
    expect_qdisc(t, kind, names[kind - 1]);
  }
}

TEST(SetQDisc, TakesAnyOtherNameAsNone) {
  for (const char* text : {"SFQ", "codel", "none", "", "Pfifo", "FQ_CODEL", "fq-codel", "fq_codel ",
                           " sfq", "sfqq", "1", "htb"}) {
    SCOPED_TRACE(text);
    TariffSettings t;
    t.setQDisc("sfq");
    EXPECT_TRUE(t.setQDisc(text));
    expect_qdisc(t, 0, "none");
  }
  for (const int kind : {4, 99, -1}) {
    TariffSettings t;
    t.qdisc = kind;
    EXPECT_EQ(t.qdisc_str(), "none") << kind;
  }
}

TEST(AddCIDR, StoresTheAddressInNetworkOrderAndTheWholeText) {
  TariffSettings t;
  EXPECT_TRUE(t.addCIDR("10.0.0.0/8"));
  EXPECT_TRUE(t.addCIDR("192.168.1.10"));
  EXPECT_TRUE(t.addCIDR("0.0.0.0"));
  EXPECT_TRUE(t.addCIDR("255.255.255.255"));
  EXPECT_THAT(t.addresses, ElementsAre(htonl(0x0a000000), htonl(0xc0a8010a), 0U, 0xffffffffU));
  EXPECT_THAT(t.address_texts,
              ElementsAre("10.0.0.0/8", "192.168.1.10", "0.0.0.0", "255.255.255.255"));
}

TEST(AddCIDR, DoesNotLookAtThePrefixLength) {
  for (const char* text : {"10.1.2.3/99", "10.1.2.3/", "10.1.2.3/abc", "10.1.2.3/24/7",
                           "10.1.2.3/-1", "10.1.2.3//", "10.1.2.3/ 8", "10.1.2.3"}) {
    SCOPED_TRACE(text);
    TariffSettings t;
    EXPECT_TRUE(t.addCIDR(text));
    EXPECT_THAT(t.addresses, ElementsAre(htonl(0x0a010203)));
    EXPECT_THAT(t.address_texts, ElementsAre(text));
  }
}

TEST(AddCIDR, RefusesWhatIsNoIPv4Address) {
  for (const char* text :
       {"::1", "2001:db8::1/64", "::ffff:10.0.0.1", "10.0.0", "10.0.0/8", "10.0.0.256",
        "10.0.0.1.2", "10.0.0.", "", "/24", " 10.0.0.1", "10.0.0.1 ", "10.0.0.1 /24", "10.0.0.-1",
        "0x7f.0.0.1", "host", "167772161", "10,0,0,1"}) {
    SCOPED_TRACE(text);
    TariffSettings t;
    EXPECT_FALSE(t.addCIDR(text));
    EXPECT_THAT(t.addresses, IsEmpty());
    EXPECT_THAT(t.address_texts, IsEmpty());
  }
}

TEST(AddPrefix, StoresTheSubscribersBlock) {
  TariffSettings t;
  EXPECT_TRUE(t.addPrefix("2001:db8::1/64"));
  EXPECT_TRUE(t.addPrefix("2001:db8::1"));
  ASSERT_EQ(t.prefixes.size(), 2U);
  EXPECT_EQ(to_text(t.prefixes[0]), "2001:db8::/64");
  EXPECT_EQ(to_text(t.prefixes[1]), "2001:db8::1");
  EXPECT_FALSE(t.addPrefix("10.0.0.1"));
  EXPECT_FALSE(t.addPrefix("fe80::1"));
  EXPECT_EQ(t.prefixes.size(), 2U);
}

TEST(TakesPart, WithPrefixesWhereTheyCountAlone) {
  TariffSettings t;
  t.download.speed = 1000;
  EXPECT_FALSE(t.takes_part(Direction::download, true));
  t.addPrefix("2001:db8::1");
  EXPECT_TRUE(t.takes_part(Direction::download, true));
  EXPECT_FALSE(t.takes_part(Direction::download));
  EXPECT_FALSE(t.takes_part(Direction::upload, true));
}

}  // namespace
}  // namespace quenby
