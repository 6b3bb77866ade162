#include <gmock/gmock.h>

#include "model/stored_form.h"
#include "tests/config/ini_fixture.h"

// IPv6 in both files.
namespace quenby {
namespace {

using testing::IsEmpty;

class IniIp6 : public test::IniFile {
 protected:
  std::optional<ParseError> read(const std::string& text, ShaperConfigInterface& cfg) {
    test::write_file(path(), text);
    return TariffIniFile(path(), true).read_ini(cfg);
  }
};

TEST_F(IniIp6, PrefixesAreWrittenAfterTheAddressesInOneForm) {
  TariffSet set;
  ASSERT_TRUE(
      parse("[a]\nip6=2001:DB8:0::5/56\naggregation=2\nip=10.0.0.1\nip6=2001:db8::0:7\n"
            "ip=10.0.0.2/8\nip6=2001:db8::7/128\n",
            set));
  const std::string form =
      "[a]\nip=10.0.0.1\nip=10.0.0.2/8\nip6=2001:db8::/56\nip6=2001:db8::7\nip6=2001:db8::7\n"
      "aggregation=2\ndownload_speed=0\nupload_speed=0\n";
  EXPECT_EQ(written(set), form);
  TariffSet again;
  ASSERT_TRUE(parse(form, again));
  round_to_stored(set);
  EXPECT_EQ(again.tariffs(), set.tariffs());
  EXPECT_EQ(written(again), form);
}

TEST_F(IniIp6, NoPrefixPassesToTheNextSection) {
  TariffSet set;
  ASSERT_TRUE(parse("[a]\nip6=2001:db8::1\n[b]\nip=10.0.0.1\n", set));
  EXPECT_EQ(set.tariffs()[0].prefixes.size(), 1U);
  EXPECT_THAT(set.tariffs()[1].prefixes, IsEmpty());
}

TEST_F(IniIp6, ARefusedPrefixSaysWhy) {
  for (const char* value : {"10.0.0.1", "fe80::1", "2001:db8::/0", "2001:db8::1/129"}) {
    TariffSet set;
    const auto error = read("[a]\nip6=" + std::string(value) + "\n", set);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->reason, "\"" + std::string(value) +
                                 "\" is not an IPv6 address or prefix of a subscriber, with a "
                                 "length from 1 to 128");
    EXPECT_EQ(error->at, (Position{2, 5}));
  }
}

TEST_F(IniIp6, TheLineSaysWhetherItIsShaped) {
  const struct {
    const char* lines;
    bool ipv6;
    const char* form;
  } rows[] = {
      {"ipv6=true\n", true, "[global]\nwan=eth1\nenabled=false\nipv6=true\n"},
      {"IPv6 = true\n", true, "[global]\nwan=eth1\nenabled=false\nipv6=true\n"},
      {"ipv6=true\nipv6=false\n", false, "[global]\nwan=eth1\nenabled=false\n"},
      {"ipv6=false\n", false, "[global]\nwan=eth1\nenabled=false\n"},
      {"", false, "[global]\nwan=eth1\nenabled=false\n"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.lines);
    GlobalSet set;
    ASSERT_TRUE(parse("[global]\nwan=eth1\n" + std::string(row.lines), set));
    EXPECT_EQ(set.global.ipv6, row.ipv6);
    EXPECT_EQ(written(set), row.form);
    GlobalSet again;
    ASSERT_TRUE(parse(row.form, again));
    EXPECT_TRUE(again.global == set.global);
  }
}

TEST_F(IniIp6, TheLineTakesTrueAndFalseAlone) {
  for (const char* value : {"TRUE", "True", "yes", "1", "0", "on", "truefalse", "::"}) {
    GlobalSet set;
    const auto error = read("[global]\nipv6=" + std::string(value) + "\n", set);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->reason, "\"" + std::string(value) + "\" is not \"true\" or \"false\"");
  }
}

TEST_F(IniIp6, OtherSectionsHaveNoSuchKeys) {
  GlobalSet global;
  EXPECT_FALSE(parse("[defaultqosipqueue]\nipv6=true\n", global));
  EXPECT_FALSE(parse("[global]\nip6=2001:db8::1\n", global));
  TariffSet tariffs;
  EXPECT_FALSE(parse("[a]\nipv6=true\n", tariffs));
}

}  // namespace
}  // namespace quenby
