#include <sys/mman.h>

#include <unistd.h>

#include "tests/config/ini_fixture.h"
#include "tests/config/ini_generator.h"

// Whatever bytes a file holds, reading it does no harm: the sanitizers watch, and what was taken
// is within its limits.
namespace quenby {
namespace {

using test::write_file;

constexpr int kFiles = 3000;

// A file without a disk: thousands of them are written.
class MemoryFile {
 public:
  MemoryFile() : file_(memfd_create("fuzz.ini", MFD_CLOEXEC)) {}
  ~MemoryFile() { close(file_); }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;
  std::string path() const { return "/proc/self/fd/" + std::to_string(file_); }

 private:
  int file_;
};

class IniFuzz : public testing::Test {
 protected:
  std::string path() const { return file_.path(); }
  std::string copy_path() const { return copy_.path(); }

  test::IniGenerator generator_;

 private:
  MemoryFile file_;
  MemoryFile copy_;
};

void expect_limits(const TariffSet& set) {
  for (const TariffSettings& t : set.tariffs()) {
    EXPECT_FALSE(t.name.empty());
    EXPECT_TRUE(t.id >= 0 && t.id <= 15'999) << t.id;
    EXPECT_EQ(t.download.id, t.id);
    EXPECT_EQ(t.upload.id, t.id);
    EXPECT_EQ(t.addresses.size(), t.address_texts.size());
    EXPECT_GE(t.download.speed, -2);
    EXPECT_GE(t.upload.burst_rate, -1);
    EXPECT_GT(t.download.aggregation, 0.0);
    EXPECT_TRUE(t.qdisc >= 0 && t.qdisc <= 3) << t.qdisc;
  }
}

TEST_F(IniFuzz, AnyFileIsReadWithinTheLimits) {
  int accepted = 0;
  for (int i = 0; i < kFiles; ++i) {
    SCOPED_TRACE(i);
    write_file(path(), generator_.next(i));
    TariffIniFile file(path(), true);
    TariffSet set;
    TariffConfig config;
    GlobalSet global;
    const bool parsed = file.parse_ini(set);
    accepted += parsed ? 1 : 0;
    expect_limits(set);
    // A list that wants numbers takes at most what one without that wish takes.
    file.parse_ini(config);
    expect_limits(config);
    EXPECT_LE(config.tariffs().size(), set.tariffs().size());
    file.parse_ini(global);
    EXPECT_GE(global.global.download.speed, -2);
    EXPECT_GE(global.defaults.upload.ceiling, -1);
    if (HasFailure()) break;
  }
  // The mutations are small enough for some files to stay valid.
  EXPECT_GT(accepted, kFiles / 100);
  EXPECT_LT(accepted, kFiles);
}

TEST_F(IniFuzz, AnyFileIsCopiedToOneThatReadsTheSame) {
  for (int i = 0; i < kFiles / 3; ++i) {
    SCOPED_TRACE(i);
    write_file(path(), generator_.next(i));
    TariffIniFile file(path(), true);
    const bool copied = file.modify_ini(TariffSet(), copy_path());
    TariffSet original;
    TariffSet again;
    if (!file.parse_ini(original)) continue;
    ASSERT_TRUE(copied);
    ASSERT_TRUE(TariffIniFile(copy_path(), true).parse_ini(again));
    ASSERT_EQ(again.tariffs(), original.tariffs());
  }
}

}  // namespace
}  // namespace quenby
