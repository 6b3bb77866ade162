#include "config/read_config.h"

#include "tests/config/stored_files.h"

// What is refused in the stored files, and in named ones as a whole.
namespace quenby {
namespace {

std::string text_of(const std::optional<ParseError>& error) {
  return error ? error->text() : "accepted";
}

class ReadConfig : public test::StoredFiles {
 protected:
  std::string named() const { return file("named.ini"); }
  std::string check_tariffs() const {
    TariffConfig tariffs;
    return text_of(check_stored(tariffs, folder()));
  }
  std::string check_global() const {
    GlobalSet global;
    return text_of(check_stored(global, folder()));
  }
  std::string check_tariffs(const std::string& text) const {
    store(text);
    return check_tariffs();
  }
  std::string check_named(const std::string& text) const {
    test::write_file(named(), text);
    TariffSet tariffs;
    return text_of(read_named(named(), tariffs));
  }
};

std::string sections(int count, int first) {
  std::string text;
  for (int i = 0; i < count; ++i)
    text += "[" + std::to_string(i) + "]\nid=" + std::to_string(first + i) + "\n";
  return text;
}

TEST_F(ReadConfig, FilesThatAreMissingAreAccepted) {
  EXPECT_EQ(check_global(), "accepted");
  EXPECT_EQ(check_tariffs(), "accepted");
  GlobalSet global;
  EXPECT_FALSE(read_stored(global, folder()).present);
  TariffConfig tariffs;
  EXPECT_FALSE(read_stored(tariffs, folder()).present);
}

TEST_F(ReadConfig, FilesThatArePresentAreReadAndOrdered) {
  store("[b]\nid=4\n[a]\nid=5\n");
  test::write_file(global_file(), "[global]\nwan=eth1\n");
  GlobalSet global;
  EXPECT_TRUE(read_stored(global, folder()).present);
  EXPECT_EQ(global.global.wan, "eth1");
  TariffConfig tariffs;
  EXPECT_TRUE(read_stored(tariffs, folder()).present);
  EXPECT_EQ(test::names(tariffs), (std::vector<std::string>{"a", "b"}));
  EXPECT_EQ(check_global() + check_tariffs(), "acceptedaccepted");
}

TEST_F(ReadConfig, EachFileIsRefusedWithItsPathAndPlace) {
  store("[a]\n");
  test::write_file(global_file(), "[global]\nhello\n");
  EXPECT_EQ(check_tariffs(), tariff_file() + ":1:2: section \"a\" has no id");
  EXPECT_EQ(check_global(), global_file() + ":2:1: no \"=\" in this line");
}

TEST_F(ReadConfig, ADirectoryIsRefusedAsAWhole) {
  std::filesystem::create_directories(tariff_file());
  std::filesystem::create_directories(global_file());
  EXPECT_EQ(check_tariffs(), tariff_file() + ": is a directory");
  EXPECT_EQ(check_global(), global_file() + ": is a directory");
}

TEST_F(ReadConfig, NumbersThatDoNotFitAreNoErrorWhileNewOnesDo) {
  EXPECT_EQ(check_tariffs("[a]\nid=1\n[b]\nid=1\n"), "accepted");
  EXPECT_EQ(check_tariffs(sections(15'996, 4)), "accepted");
  EXPECT_EQ(check_tariffs(sections(1, 15'999)), "accepted");
  EXPECT_EQ(check_tariffs(sections(15'997, 3)),
            tariff_file() +
                ": too many sections: the last class number of a tariff is "
                "15999");
}

TEST_F(ReadConfig, ABurstSizeIsAnErrorOnlyWhereItHasToBeSaved) {
  const std::string large = "\nupload_burst_size=3000000000\n";
  EXPECT_EQ(check_tariffs("[b]\nid=4\n[a]\nid=5" + large), "accepted");
  EXPECT_EQ(check_tariffs("[b]\nid=5\n[a]\nid=5" + large),
            tariff_file() + ":3:2: section \"a\" has a burst size above 2147483647");
}

TEST_F(ReadConfig, NothingIsSaved) {
  const std::string text = "[b]\nid=1\ndownload_speed=1.5\n\n[a]\nid=1\n";
  EXPECT_EQ(check_tariffs(text), "accepted");
  EXPECT_EQ(stored(), text);
}

TEST_F(ReadConfig, ANamedTariffFileIsRefusedForWhatItHoldsAltogether) {
  const std::pair<const char*, const char*> rows[] = {
      {"[a]\n[b]\n [a]\n", ":3:3: section \"a\" is in the file twice"},
      {"[a]\nid=4\n[b]\n[a]\n", ":4:2: section \"a\" is in the file twice"},
      {"[a]\n[b]\ndownload_burst_size=2147483648\n",
       ":2:2: section \"b\" has a burst size above 2147483647"},
      {"[a]\nupload_burst_size=3000000000\n",
       ":1:2: section \"a\" has a burst size above 2147483647"},
      {"[a]\nspeed=1\n", ":2:1: unknown key \"speed\" in this section"},
  };
  for (const auto& [text, error] : rows) EXPECT_EQ(check_named(text), named() + error);
  TariffSet tariffs;
  EXPECT_EQ(text_of(read_named(file("missing.ini"), tariffs)),
            file("missing.ini") + ": cannot be opened: No such file or directory");
}

TEST_F(ReadConfig, ANamedTariffFileIsOrderedAndRoundedToItsStoredForm) {
  EXPECT_EQ(check_named("[z]\n[a]\ndownload_speed=1.5\n[m]\n"), "accepted");
  TariffSet tariffs;
  EXPECT_FALSE(read_named(named(), tariffs));
  EXPECT_EQ(test::names(tariffs), (std::vector<std::string>{"a", "m", "z"}));
  EXPECT_EQ(tariffs.tariffs()[0].download.speed, 125);
  EXPECT_EQ(tariffs.tariffs()[0].upload.speed, 0);
}

TEST_F(ReadConfig, ANamedGlobalFileIsRoundedToItsStoredForm) {
  test::write_file(named(), "[global]\ndownload_speed=1.5\n");
  GlobalSet global;
  EXPECT_EQ(text_of(read_named(named(), global)), "accepted");
  EXPECT_EQ(global.global.download.speed, 125);
  test::write_file(named(), "[gold]\n");
  EXPECT_EQ(text_of(read_named(named(), global)),
            named() +
                ":1:2: unknown section \"gold\": only [global] and [defaultqosipqueue] "
                "are allowed here");
}

}  // namespace
}  // namespace quenby
