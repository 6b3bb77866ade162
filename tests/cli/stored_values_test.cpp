#include <sys/mman.h>

#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <unistd.h>

#include "cli/config_input.h"
#include "config/tariff_ini_file.h"
#include "model/stored_form.h"
#include "tests/support/files.h"

// Whatever value a stored file holds, a save of the whole list writes what the next run reads: the
// same values, and the same text again.
namespace quenby {
namespace {

class StoredValues : public testing::Test {
 protected:
  ~StoredValues() override { close(file_); }

  bool read(const std::string& text, ShaperConfigInterface& set) {
    test::write_file(path_, text);
    return TariffIniFile(path_, false).parse_ini(set);
  }

  std::string written(const ShaperConfigInterface& set) {
    std::ofstream out(path_);
    EXPECT_TRUE(set.write(out));
    out.close();
    return test::read_file(path_);
  }

  // What a save of the whole list makes of a stored text.
  std::string saved(const std::string& text) {
    TariffConfig tariffs;
    if (!read(text, tariffs)) return "refused";
    if (!can_be_stored(tariffs)) return "cannot be saved";
    prepare_whole_save(tariffs);
    return written(tariffs);
  }

  // Counts what becomes of a stored text, and reads back what is saved of it.
  void expect_lasting(const std::string& text) {
    TariffConfig tariffs;
    if (!read(text, tariffs)) {
      ++refused_;
      return;
    }
    if (!can_be_stored(tariffs)) {
      ++unsaved_;
      // The list is right to be held back.
      TariffConfig again;
      EXPECT_FALSE(read(written(tariffs), again)) << text;
      return;
    }
    ++saved_;
    prepare_whole_save(tariffs);
    const std::string first = written(tariffs);
    TariffConfig again;
    ASSERT_TRUE(read(first, again)) << text;
    EXPECT_EQ(again.tariffs(), tariffs.tariffs()) << text << first;
    for (std::size_t i = 0; i < again.tariffs().size(); ++i)
      EXPECT_EQ(again.tariffs()[i].address_texts, tariffs.tariffs()[i].address_texts);
    EXPECT_EQ(written(again), first);
    prepare_whole_save(again);
    EXPECT_EQ(written(again), first);
  }

  void expect_lasting_global(const std::string& text) {
    GlobalSet set;
    if (!read(text, set)) {
      ++refused_;
      return;
    }
    ++saved_;
    round_to_stored(set);
    const std::string first = written(set);
    GlobalSet again;
    ASSERT_TRUE(read(first, again)) << text;
    EXPECT_TRUE(again.global == set.global) << text << first;
    EXPECT_TRUE(again.defaults == set.defaults) << text << first;
    EXPECT_EQ(written(again), first);
  }

  int saved_ = 0;
  int refused_ = 0;
  int unsaved_ = 0;

 private:
  // Without a disk: thousands of files are written.
  const int file_ = memfd_create("stored.ini", MFD_CLOEXEC);
  const std::string path_ = "/proc/self/fd/" + std::to_string(file_);
};

const char* const kNumberKeys[] = {
    "id",           "aggregation",       "download_speed",      "download_burst_rate",
    "upload_speed", "upload_burst_rate", "download_burst_size", "upload_burst_size"};

const char* const kSpeedKeys[] = {"download_speed", "upload_speed"};

std::string section(const std::string& lines) { return "[t]\nid=4\n" + lines; }

std::vector<std::string> odd_numbers() {
  std::vector<std::string> numbers = {"0",
                                      "-0",
                                      "-1",
                                      "-2",
                                      "-5",
                                      "1e-300",
                                      "1e-320",
                                      "5e-324",
                                      "1e-400",
                                      "0.5",
                                      "0.999",
                                      "1.5",
                                      "1.999",
                                      "1e15",
                                      "9.3e15",
                                      "1e18",
                                      "1e19",
                                      "1e300",
                                      "1e308",
                                      "1e400",
                                      "-1e400",
                                      "inf",
                                      "-inf",
                                      "nan",
                                      "-nan",
                                      "INFINITY",
                                      "nan(12)",
                                      "0x10",
                                      "0x1p-1074",
                                      "0x1.8p1",
                                      "0xfffffffff",
                                      "0x",
                                      "1e",
                                      "1,5",
                                      "+7",
                                      "kbit",
                                      "5 users",
                                      "2147483647.9",
                                      "4294967295.5",
                                      "9223372036854775807",
                                      "1 2 3",
                                      "=",
                                      "[x]",
                                      "]"};
  for (int exponent = 29; exponent <= 65; ++exponent) {
    for (const double step : {-1.0, 0.0, 1.0, 1000.0}) {
      char text[64];
      std::snprintf(text, sizeof(text), "%.0f", std::ldexp(1.0, exponent) + step);
      numbers.emplace_back(text);
      std::snprintf(text, sizeof(text), "%.6f", (std::ldexp(1.0, exponent) + step) / 1000.0);
      numbers.emplace_back(text);
    }
  }
  return numbers;
}

TEST_F(StoredValues, AreSavedInOneForm) {
  const struct {
    const char* lines;
    const char* saved;
  } rows[] = {
      {"", "download_speed=0\nupload_speed=0\n"},
      {"download_speed=1.999\nupload_speed=-5\n", "download_speed=1\nupload_speed=-1\n"},
      {"download_speed=max\n", "download_speed=-1\nupload_speed=0\n"},
      {"download_speed=0x10\n", "download_speed=16\nupload_speed=0\n"},
      {"download_burst_rate=999.9\n",
       "download_speed=0\ndownload_burst_rate=999\nupload_speed=0\n"},
      {"download_burst_rate=0.9\n", "download_speed=0\nupload_speed=0\n"},
      {"download_burst_rate=-1\n", "download_speed=0\nupload_speed=0\n"},
      {"download_burst_size=1500.9\n",
       "download_speed=0\ndownload_burst_size=1500\nupload_speed=0\n"},
      {"upload_burst_size=2147483647\n",
       "download_speed=0\nupload_speed=0\nupload_burst_size=2147483647\n"},
      {"upload_burst_size=4294967301\n", "download_speed=0\nupload_speed=0\nupload_burst_size=5\n"},
      {"upload_burst_size=4294967296\n", "download_speed=0\nupload_speed=0\n"},
      {"upload_burst_size=1e300\n", "download_speed=0\nupload_speed=0\n"},
      {"upload_burst_size=inf\n", "download_speed=0\nupload_speed=0\n"},
      {"aggregation=5\naggregation=0\n", "aggregation=0\ndownload_speed=0\nupload_speed=0\n"},
      {"aggregation=5\naggregation=1\n", "download_speed=0\nupload_speed=0\n"},
      {"aggregation=inf\n", "aggregation=inf\ndownload_speed=0\nupload_speed=0\n"},
      {"aggregation=1e-300\n", "aggregation=1e-300\ndownload_speed=0\nupload_speed=0\n"},
      {"aggregation=-0\n", "aggregation=-0\ndownload_speed=0\nupload_speed=0\n"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.lines);
    const std::string saved_section = saved(section(row.lines));
    EXPECT_TRUE(saved_section == section(row.saved)) << saved_section;
  }
}

TEST_F(StoredValues, ThatNoReaderWouldTakeBackAreNotSaved) {
  for (const char* size : {"2147483648", "3000000000", "3e9 bytes", "4294967295", "4294967295.9",
                           "0xffffffff", "6442450944"}) {
    SCOPED_TRACE(size);
    EXPECT_EQ(saved(section("download_burst_size=" + std::string(size))), "cannot be saved");
    EXPECT_EQ(saved(section("upload_burst_size=" + std::string(size))), "cannot be saved");
  }
}

TEST_F(StoredValues, ThatAreRefused) {
  for (const char* line : {"id=0",
                           "id=16000",
                           "id=nan",
                           "id=-4",
                           "aggregation=nan",
                           "aggregation=-inf",
                           "aggregation=many",
                           "aggregation=1e-400",
                           "aggregation=1e400",
                           "download_speed=1e300",
                           "download_speed=inf",
                           "download_speed=nan",
                           "upload_speed=9223372036854776",
                           "upload_burst_rate=inf",
                           "upload_burst_rate=nan",
                           "download_burst_size=nan",
                           "download_burst_size=-1",
                           "download_burst_size=big",
                           "ip=10.0.0",
                           "ip=::1"}) {
    SCOPED_TRACE(line);
    EXPECT_EQ(saved(section(line)), "refused");
  }
}

TEST_F(StoredValues, WithoutANumberAreRefusedInTheLastSectionToo) {
  EXPECT_EQ(saved("[a]\n[b]\nid=4\n"), "refused");
  EXPECT_EQ(saved("[a]\nid=4\n[b]\n"), "refused");
}

TEST_F(StoredValues, LastWhenTheyAreOdd) {
  for (const char* key : kNumberKeys) {
    for (const std::string& number : odd_numbers()) {
      expect_lasting(section(key + ("=" + number) + "\n"));
      // In the place of an earlier one.
      expect_lasting(section(key + ("=5\n" + std::string(key)) + "=" + number + "\n"));
    }
  }
  EXPECT_GT(saved_, 1000);
  EXPECT_GT(refused_, 500);
  EXPECT_GT(unsaved_, 50);
}

TEST_F(StoredValues, LastWhateverTheNumber) {
  std::mt19937_64 random(20'261'121);
  for (int i = 0; i < 300; ++i) {
    const std::uint64_t bits = random();
    double number = 0.0;
    std::memcpy(&number, &bits, sizeof(number));
    // Every second one in the range where conversions come to their ends.
    if (i % 2 == 0) number = std::ldexp(1.0 + std::fabs(std::fmod(number, 1.0)), i % 70);
    char text[512];
    std::snprintf(text, sizeof(text), "%.17g", number);
    for (const char* key : kNumberKeys) expect_lasting(section(key + ("=" + std::string(text))));
  }
  EXPECT_GT(saved_, 600);
  EXPECT_GT(refused_, 600);
}

TEST_F(StoredValues, OfTheGlobalFileLast) {
  for (const char* key : kSpeedKeys) {
    for (const std::string& number : odd_numbers()) {
      const std::string line = key + ("=" + number) + "\n";
      expect_lasting_global("[global]\nenabled=true\n" + line);
      expect_lasting_global("[global]\n[defaultqosipqueue]\n" + line);
      expect_lasting_global("[defaultqosipqueue]\n" + line + "[global]\n" + line);
    }
  }
  for (const char* wan : {"eth1", "=", "[eth1]", "a b", "]", "-1", "nan", "'$(id)'", "\xff\x01"})
    expect_lasting_global("[global]\nwan=" + std::string(wan) + "\n");
  EXPECT_GT(saved_, 1000);
  EXPECT_GT(refused_, 100);
}

// A line is read in pieces of 4095 characters, and no shorter one is written for it.
TEST_F(StoredValues, LastWhenTheyAreLong) {
  for (const std::size_t length : {4090U, 4094U, 4095U, 4096U, 9000U}) {
    const std::string filler(length, 'x');
    for (const std::string line : {"ip=10.0.0.1/", "aggregation=2 ", "download_speed=1 ",
                                   "queuing_discipline=sfq", "id=5 "}) {
      expect_lasting(section((line + filler).substr(0, length) + "\n"));
      // Blanks, which fill the line and go with the save.
      expect_lasting(section(line + std::string(length, ' ') + "y=\n"));
      expect_lasting(section(std::string(length - line.size(), ' ') + line + "9\n"));
    }
    expect_lasting("[" + filler.substr(0, length - 2) + "]\nid=4\n");
    expect_lasting_global("[global]\n" + ("wan=" + filler).substr(0, length) + "\n");
  }
  EXPECT_GT(saved_, 30);
  EXPECT_GT(refused_, 20);
}

}  // namespace
}  // namespace quenby
