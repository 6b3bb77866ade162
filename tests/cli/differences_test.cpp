#include <gtest/gtest.h>
#include <utility>

#include "cli/config_input.h"
#include "config/read_config.h"
#include "config/tariff_ini_file.h"
#include "tests/support/files.h"
#include "tests/support/tariffs.h"

// What has changed between the stored list and a given one.
namespace quenby {
namespace {

using test::names;
using test::set_of;
using test::tariff;

using Names = std::vector<std::string>;

struct Differences {
  TariffSet removed;
  TariffSet added;
};

Differences differences(const TariffConfig& current, const TariffSet& list, bool ipv6 = true) {
  Differences result;
  collect_differences(current, list, ipv6, result.removed, result.added);
  return result;
}

void expect_names(const Differences& d, const Names& removed, const Names& added) {
  EXPECT_EQ(names(d.removed), removed);
  EXPECT_EQ(names(d.added), added);
}

TEST(Differences, BetweenEqualListsAreNone) {
  const auto current = set_of<TariffConfig>(tariff("a", 4), tariff("b", 5));
  expect_names(differences(current, set_of(tariff("a", 4), tariff("b", 5))), {}, {});
  expect_names(differences(TariffConfig(), TariffSet()), {}, {});
}

TEST(Differences, PutAChangedTariffIntoBothSets) {
  TariffSettings changed = tariff("b", 5);
  changed.setQDisc("sfq");
  const auto current = set_of<TariffConfig>(tariff("a", 4), tariff("b", 5), tariff("c", 6));
  const Differences d = differences(current, set_of(tariff("a", 4), changed));
  ASSERT_EQ(names(d.removed), Names{"b"});
  ASSERT_EQ(names(d.added), Names{"b"});
  EXPECT_EQ(d.removed.tariffs()[0].qdisc_str(), "none");
  EXPECT_EQ(d.added.tariffs()[0].qdisc_str(), "sfq");
}

TEST(Differences, PutANewTariffIntoTheAddedSetAlone) {
  const auto current = set_of<TariffConfig>(tariff("b", 5));
  expect_names(differences(current, set_of(tariff("a", 6), tariff("b", 5))), {}, {"a"});
  expect_names(differences(TariffConfig(), set_of(tariff("a", 4))), {}, {"a"});
}

// Their classes and addresses differ, and one tariff takes the place of both.
TEST(Differences, PutBothStoredTariffsOfOneNameIntoTheRemovedSet) {
  const auto current =
      set_of<TariffConfig>(tariff("a", 4), tariff("b", 5), tariff("b", 6), tariff("c", 7));
  const Differences d = differences(current, set_of(tariff("a", 4), tariff("b", 5)));
  expect_names(d, {"b", "b"}, {"b"});
  EXPECT_EQ(test::ids(d.removed), (std::vector<int>{5, 6}));
  EXPECT_EQ(test::ids(d.added), (std::vector<int>{5}));
  expect_names(differences(current, set_of(tariff("a", 4), tariff("c", 7))), {}, {});
}

TEST(Differences, LeaveAStoredTariffThatIsNotGivenAlone) {
  const auto current = set_of<TariffConfig>(tariff("a", 4), tariff("b", 5));
  expect_names(differences(current, set_of(tariff("b", 5))), {}, {});
  expect_names(differences(current, TariffSet()), {}, {});
}

TEST(Differences, TakeANameInOtherLettersForAnotherTariff) {
  const auto current = set_of<TariffConfig>(tariff("Gold", 4), tariff("gold2", 5));
  expect_names(differences(current, set_of(tariff("GOLD", 4), tariff("gold", 5))), {},
               {"GOLD", "gold"});
}

TEST(Differences, StandInTheOrderOfNames) {
  TariffSettings a = tariff("a", 9);
  TariffSettings c = tariff("c", 4);
  const auto current = set_of<TariffConfig>(a, tariff("b", 7), c);
  a.setQDisc("pfifo");
  c.setQDisc("pfifo");
  const auto list = set_of(tariff("Z", 10), a, tariff("b", 7), c, tariff("d", 11));
  expect_names(differences(current, list), {"a", "c"}, {"Z", "a", "c", "d"});
}

TEST(Differences, OfPrefixesAloneAreNoneWhereIPv6IsNotShaped) {
  const auto current = set_of<TariffConfig>(tariff("a", 4), tariff("b", 5));
  TariffSettings with = tariff("a", 4);
  ASSERT_TRUE(with.addPrefix("2001:db8::/64"));
  TariffSettings faster = tariff("b", 5);
  ASSERT_TRUE(faster.addPrefix("2001:db8:1::/64"));
  faster.upload.speed += 1;
  expect_names(differences(current, set_of(with, faster), false), {"b"}, {"b"});
  expect_names(differences(current, set_of(with, faster), true), {"a", "b"}, {"a", "b"});
}

using Change = void (*)(TariffSettings&);

// One direction's fields.
template <Direction Way>
std::vector<Change> direction_changes() {
  return {
      [](TariffSettings& t) { t.direction(Way).speed += 1; },
      [](TariffSettings& t) { t.direction(Way).aggregation = 2.5; },
      [](TariffSettings& t) { t.direction(Way).burst_rate += 1; },
      [](TariffSettings& t) { t.direction(Way).burst_size += 1; },
      [](TariffSettings& t) { t.direction(Way).id += 1; },
      [](TariffSettings& t) { t.direction(Way).qdisc = kQdiscPfifo; },
  };
}

void expect_difference(const std::vector<Change>& changes) {
  TariffSettings stored = tariff("b", 5);
  ASSERT_TRUE(stored.addCIDR("10.0.0.1") && stored.addCIDR("10.0.0.2") &&
              stored.addPrefix("2001:db8::/64"));
  const auto current = set_of<TariffConfig>(tariff("a", 4), stored, tariff("c", 6));
  int index = 0;
  for (const Change change : changes) {
    SCOPED_TRACE(index++);
    TariffSettings given = stored;
    change(given);
    const Differences d = differences(current, set_of(tariff("a", 4), given, tariff("c", 6)));
    ASSERT_EQ(names(d.removed), Names{"b"});
    ASSERT_EQ(names(d.added), Names{"b"});
    EXPECT_TRUE(d.removed.tariffs()[0] == stored);
    EXPECT_TRUE(d.added.tariffs()[0] == given);
  }
}

TEST(Differences, AreFoundInEveryFieldOfATariff) {
  expect_difference({
      [](TariffSettings& t) { t.id = 9; },
      [](TariffSettings& t) { t.aggregation_text = "1.0"; },
      [](TariffSettings& t) { t.qdisc = kQdiscSfq; },
      [](TariffSettings& t) { t.addresses[1] += 1; },
      [](TariffSettings& t) { t.addresses.pop_back(); },
      [](TariffSettings& t) { t.addresses.push_back(1); },
      [](TariffSettings& t) { std::swap(t.addresses[0], t.addresses[1]); },
      [](TariffSettings& t) { t.prefixes[0].length = 63; },
      [](TariffSettings& t) { t.prefixes.clear(); },
      [](TariffSettings& t) { t.addPrefix("2001:db8::1"); },
  });
}

TEST(Differences, AreFoundInEveryFieldOfTheDownload) {
  expect_difference(direction_changes<Direction::download>());
}

TEST(Differences, AreFoundInEveryFieldOfTheUpload) {
  expect_difference(direction_changes<Direction::upload>());
}

constexpr const char* kAmy = R"([amy]
id=4
ip=10.0.0.1
ip=10.0.0.2/24
aggregation=2
download_speed=8000
upload_speed=4000
download_burst_rate=9000
upload_burst_rate=5000
download_burst_size=20000
upload_burst_size=10000
queuing_discipline=sfq
)";
constexpr const char* kZed = "[zed]\nid=5\nip=10.0.0.9\ndownload_speed=1000\nupload_speed=1000\n";

std::string replaced(std::string text, const std::string& what, const std::string& by) {
  const std::size_t place = text.find(what);
  EXPECT_NE(place, std::string::npos) << what;
  return text.replace(place, what.size(), by);
}

// Both lists as files, which the program reads and numbers before it compares them.
class FileDifferences : public testing::Test {
 protected:
  Differences compare(const std::string& stored, const std::string& given) {
    test::write_file(scratch_.file("stored.ini"), stored);
    test::write_file(scratch_.file("given.ini"), given);
    TariffConfig current;
    EXPECT_TRUE(TariffIniFile(scratch_.file("stored.ini"), false).parse_ini(current));
    current.sort();
    TariffSet list;
    EXPECT_FALSE(read_named(scratch_.file("given.ini"), list));
    EXPECT_TRUE(current.fillIDs(list, true));
    return differences(current, list);
  }

  // The stored list with one piece of its first section replaced.
  Differences compare_with(const std::string& what, const std::string& by) {
    return compare(std::string(kAmy) + kZed, replaced(kAmy, what, by) + kZed);
  }

 private:
  const test::ScratchDirectory scratch_;
};

struct Replacement {
  const char* what;
  const char* by;
};

TEST_F(FileDifferences, AreFoundForEveryKey) {
  const Replacement replacements[] = {
      {"ip=10.0.0.1", "ip=10.0.0.3"},
      {"ip=10.0.0.1\n", ""},
      {"ip=10.0.0.1\n", "ip=10.0.0.1\nip=10.0.0.1\n"},
      {"ip=10.0.0.1\nip=10.0.0.2/24", "ip=10.0.0.2/24\nip=10.0.0.1"},
      {"aggregation=2", "aggregation=3"},
      {"aggregation=2", "aggregation=2.0"},
      {"aggregation=2\n", ""},
      {"download_speed=8000", "download_speed=8001"},
      {"download_speed=8000", "download_speed=none"},
      {"upload_speed=4000", "upload_speed=3999"},
      {"upload_speed=4000\n", ""},
      {"download_burst_rate=9000", "download_burst_rate=9001"},
      {"upload_burst_rate=5000\n", ""},
      {"download_burst_size=20000", "download_burst_size=20001"},
      {"upload_burst_size=10000", "upload_burst_size=0"},
      {"queuing_discipline=sfq", "queuing_discipline=pfifo"},
      {"queuing_discipline=sfq", "queuing_discipline=SFQ"},
      {"queuing_discipline=sfq\n", ""},
  };
  for (const Replacement& r : replacements) {
    SCOPED_TRACE(std::string(r.what) + " -> " + r.by);
    expect_names(compare_with(r.what, r.by), {"amy"}, {"amy"});
  }
}

TEST_F(FileDifferences, AreNoneWhereOnlyTheTextDiffers) {
  const Replacement replacements[] = {
      {"id=4", "id=9"},
      {"id=4\n", ""},
      {"ip=10.0.0.1", "ip=10.0.0.1/32"},
      {"ip=10.0.0.2/24", "ip=10.0.0.2"},
      {"ip=10.0.0.2/24", "ip=10.0.0.2/99"},
      {"aggregation=2", "  Aggregation\t=  2  "},
      {"download_speed=8000", "download_speed=8000.9"},
      {"download_speed=8000", "DOWNLOAD_SPEED=8e3 kbit"},
      {"upload_speed=4000", "upload_speed=1\nupload_speed=4000"},
      {"download_burst_rate=9000", "download_burst_rate=9000.9"},
      {"download_burst_size=20000", "download_burst_size=20000.9"},
      {"queuing_discipline=sfq", "queuing_discipline=pfifo\nqueuing_discipline=sfq"},
      {"[amy]\n", "\n [ amy ] of the north\r\n\n"},
      {"id=4\nip=10.0.0.1\n", "ip=10.0.0.1\nid=4\n"},
      {"aggregation=2\ndownload_speed=8000\n", "download_speed=8000\naggregation=2\n"},
      {"download_speed=8000\nupload_speed=4000\n", "upload_speed=4000\ndownload_speed=8000\n"},
  };
  for (const Replacement& r : replacements) {
    SCOPED_TRACE(std::string(r.what) + " -> " + r.by);
    expect_names(compare_with(r.what, r.by), {}, {});
  }
}

TEST_F(FileDifferences, AreNoneWhereSectionsHaveMoved) {
  const std::string amy = kAmy;
  const std::string zed = kZed;
  const std::string ann = "[Ann]\nid=6\ndownload_speed=500\nupload_speed=500\n";
  expect_names(compare(amy + zed + ann, zed + ann + amy), {}, {});
  expect_names(compare(ann + zed + amy, amy + ann + zed), {}, {});
}

// A speed that the file does not give is stored as 0.
TEST_F(FileDifferences, StandInTheOrderOfNamesWhateverTheOrderOfSections) {
  const std::string closed = "download_speed=0\nupload_speed=0\n";
  const std::string stored = "[c]\nid=4\nip=10.0.0.3\n" + closed + "[b]\nid=5\nip=10.0.0.2\n" +
                             closed + "[a]\nid=6\n" + closed;
  const std::string given = "[d]\n[c]\nip=10.0.0.4\n[B]\n[b]\nip=10.0.0.2\n[a]\nip=10.0.0.1\n";
  const Differences d = compare(stored, given);
  expect_names(d, {"a", "c"}, {"B", "a", "c", "d"});
  // Known names keep their numbers; new ones get the next, in the order of names.
  EXPECT_EQ(test::ids(d.removed), (std::vector<int>{6, 4}));
  EXPECT_EQ(test::ids(d.added), (std::vector<int>{7, 6, 4, 8}));
}

}  // namespace
}  // namespace quenby
