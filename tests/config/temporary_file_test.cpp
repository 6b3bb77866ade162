#include "config/temporary_file.h"

#include <sys/stat.h>

#include <boost/filesystem.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/files.h"

namespace quenby {
namespace {

using test::mode_of;
using test::names_in;
using test::read_file;
using test::ScratchDirectory;
using test::write_file;
using testing::ElementsAre;
using testing::MatchesRegex;
using testing::UnorderedElementsAre;

const std::string kDigits = "0123456789abcdef";

class TemporaryFileTest : public testing::Test {
 protected:
  // Symbolic links to `victim` under every name "x-?" but the digits of `free`.
  void plant_links(const std::string& free) const {
    for (const char digit : kDigits) {
      if (free.find(digit) == std::string::npos)
        std::filesystem::create_symlink(scratch.file("victim"), scratch.file("x-") + digit);
    }
  }

  const ScratchDirectory scratch;
};

TEST_F(TemporaryFileTest, IsMadeEmptyForItsOwnerAlone) {
  const TemporaryFile file = TemporaryFile::create(scratch.file("x-%%%%"));
  EXPECT_THAT(file.path(), MatchesRegex(".*/x-[0-9a-f][0-9a-f][0-9a-f][0-9a-f]"));
  struct stat status {};
  ASSERT_EQ(lstat(file.path().c_str(), &status), 0);
  EXPECT_TRUE(S_ISREG(status.st_mode));
  EXPECT_EQ(status.st_mode & 0777U, 0600U);
  EXPECT_EQ(status.st_size, 0);
}

TEST_F(TemporaryFileTest, GoesWithItsOwner) {
  {
    const TemporaryFile made = TemporaryFile::create(scratch.file("x-%%%%"));
    const TemporaryFile named(scratch.file("named"));
    const TemporaryFile never_made(scratch.file("never"));
    write_file(named.path(), "text");
    EXPECT_EQ(names_in(scratch.path()).size(), 2U);
  }
  EXPECT_TRUE(names_in(scratch.path()).empty());
}

TEST_F(TemporaryFileTest, LeavesItsNameToOthersOnceItHasReplaced) {
  {
    TemporaryFile file(scratch.file("named"));
    write_file(file.path(), "new");
    write_file(scratch.file("target"), "old");
    file.replace(scratch.file("target"));
    write_file(file.path(), "another run's");
  }
  EXPECT_EQ(read_file(scratch.file("target")), "new");
  EXPECT_EQ(read_file(scratch.file("named")), "another run's");
}

TEST_F(TemporaryFileTest, StaysItsOwnersWhenItCannotReplace) {
  std::filesystem::create_directory(scratch.file("target"));
  {
    TemporaryFile file(scratch.file("named"));
    write_file(file.path(), "new");
    EXPECT_THROW(file.replace(scratch.file("target")), boost::filesystem::filesystem_error);
    EXPECT_THROW(file.replace(scratch.file("no/target")), boost::filesystem::filesystem_error);
  }
  EXPECT_THAT(names_in(scratch.path()), ElementsAre("target"));
}

TEST_F(TemporaryFileTest, IsMadeInThePlaceOfAnOldOne) {
  write_file(scratch.file("named"), "old");
  const TemporaryFile file(scratch.file("named"));
  EXPECT_TRUE(file.make());
  EXPECT_EQ(read_file(file.path()), "");
  EXPECT_EQ(mode_of(file.path()), 0600U);
  const TemporaryFile homeless(scratch.file("no/such"));
  EXPECT_FALSE(homeless.make());
}

TEST_F(TemporaryFileTest, LeavesADirectoryUnderItsName) {
  std::filesystem::create_directory(scratch.file("named"));
  {
    const TemporaryFile file(scratch.file("named"));
    EXPECT_FALSE(file.make());
  }
  EXPECT_TRUE(std::filesystem::is_directory(scratch.file("named")));
}

TEST_F(TemporaryFileTest, NeverFollowsALinkUnderItsName) {
  write_file(scratch.file("victim"), "precious");
  plant_links("5c");
  const TemporaryFile first = TemporaryFile::create(scratch.file("x-%"));
  const TemporaryFile second = TemporaryFile::create(scratch.file("x-%"));
  EXPECT_THAT((std::vector{first.path(), second.path()}),
              UnorderedElementsAre(scratch.file("x-5"), scratch.file("x-c")));
  write_file(first.path(), "ours");
  EXPECT_EQ(read_file(scratch.file("victim")), "precious");
}

TEST_F(TemporaryFileTest, NeverMakesTheTargetOfADanglingLink) {
  plant_links("0");
  const TemporaryFile file = TemporaryFile::create(scratch.file("x-%"));
  EXPECT_EQ(file.path(), scratch.file("x-0"));
  EXPECT_FALSE(std::filesystem::exists(scratch.file("victim")));
}

TEST_F(TemporaryFileTest, NeverOverwritesAFile) {
  for (const char digit : kDigits) {
    if (digit != 'a') write_file(scratch.file("x-") + digit, "precious");
  }
  { const TemporaryFile file = TemporaryFile::create(scratch.file("x-%")); }
  EXPECT_EQ(names_in(scratch.path()).size(), 15U);
  for (const std::string& name : names_in(scratch.path()))
    EXPECT_EQ(read_file(scratch.file(name)), "precious");
}

TEST_F(TemporaryFileTest, GivesUpWhenEveryNameIsTaken) {
  write_file(scratch.file("victim"), "precious");
  plant_links("");
  try {
    TemporaryFile::create(scratch.file("x-%"));
    FAIL() << "a name was found";
  } catch (const boost::filesystem::filesystem_error& e) {
    EXPECT_EQ(e.code(), boost::system::errc::file_exists);
  }
  EXPECT_EQ(read_file(scratch.file("victim")), "precious");
  EXPECT_EQ(names_in(scratch.path()).size(), 17U);
}

TEST_F(TemporaryFileTest, ReportsADirectoryThatIsMissing) {
  try {
    TemporaryFile::create(scratch.file("no/x-%%%%"));
    FAIL() << "a file was made";
  } catch (const boost::filesystem::filesystem_error& e) {
    EXPECT_EQ(e.code(), boost::system::errc::no_such_file_or_directory);
  }
}

}  // namespace
}  // namespace quenby
