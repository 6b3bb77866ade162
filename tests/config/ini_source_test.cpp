#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <array>
#include <fcntl.h>
#include <thread>
#include <unistd.h>

#include "tests/config/ini_fixture.h"

// What a configuration may be read from.
namespace quenby {
namespace {

using test::write_file;

class IniSource : public test::IniFile {
 protected:
  static bool reads(const std::string& path, bool command_line) {
    return TariffIniFile(path, command_line).parse_ini(*std::make_unique<TariffSet>());
  }
  static bool anyone_reads(const std::string& path) {
    return reads(path, true) || reads(path, false);
  }
};

TEST_F(IniSource, AFile) {
  write_file(path(), "[a]\nid=4\n");
  EXPECT_TRUE(reads(path(), true));
  EXPECT_TRUE(reads(path(), false));
}

TEST_F(IniSource, ALinkToAFile) {
  write_file(path(), "[a]\nid=4\n");
  std::filesystem::create_symlink(path(), scratch().file("link"));
  EXPECT_TRUE(reads(scratch().file("link"), true));
  EXPECT_TRUE(reads(scratch().file("link"), false));
}

TEST_F(IniSource, NoDirectory) {
  EXPECT_FALSE(anyone_reads(scratch().path()));
  std::filesystem::create_symlink(scratch().path(), scratch().file("link"));
  EXPECT_FALSE(anyone_reads(scratch().file("link")));
}

TEST_F(IniSource, NoDevice) {
  for (const char* device : {"/dev/null", "/dev/zero", "/dev/full"})
    EXPECT_FALSE(anyone_reads(device)) << device;
}

TEST_F(IniSource, NoSocket) {
  const int socket_file = socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un address{AF_UNIX, {}};
  const std::string path = scratch().file("s");
  ASSERT_LT(path.size(), sizeof address.sun_path);
  path.copy(address.sun_path, path.size());
  ASSERT_EQ(bind(socket_file, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  EXPECT_FALSE(anyone_reads(path));
  close(socket_file);
}

TEST_F(IniSource, NothingThatIsMissing) {
  EXPECT_FALSE(anyone_reads(scratch().file("missing")));
  std::filesystem::create_symlink("missing", scratch().file("link"));
  EXPECT_FALSE(anyone_reads(scratch().file("link")));
  std::filesystem::create_symlink("loop", scratch().file("loop"));
  EXPECT_FALSE(anyone_reads(scratch().file("loop")));
}

// The kernel calls it a file, and fails to read it at its beginning.
TEST_F(IniSource, NoFileThatCannotBeRead) { EXPECT_FALSE(anyone_reads("/proc/self/mem")); }

TEST_F(IniSource, WhatWasRefusedIsNeverAskedFor) {
  // A set that was asked for room in vain would have some.
  TariffSet set;
  EXPECT_FALSE(TariffIniFile(scratch().path(), true).parse_ini(set));
  EXPECT_EQ(set.tariffs().capacity(), 0U);
}

TEST_F(IniSource, AStoredPipeIsRefusedWithoutWaiting) {
  ASSERT_EQ(mkfifo(path().c_str(), 0600), 0);
  EXPECT_FALSE(reads(path(), false));
}

TEST_F(IniSource, ANamedPipeIsWaitedForAndReadToItsEnd) {
  ASSERT_EQ(mkfifo(path().c_str(), 0600), 0);
  std::thread writer([this] {
    usleep(100'000);
    std::ofstream out(path());
    out << "[a]\nid=4\n" << std::flush;
    usleep(100'000);
    out << "[b]\nid=5\n";
  });
  TariffSet set;
  EXPECT_TRUE(TariffIniFile(path(), true).parse_ini(set));
  writer.join();
  EXPECT_EQ(set.tariffs().size(), 2U);
}

// As a shell hands over "<(command)", and "-" of other programs.
TEST_F(IniSource, APipeOfTheProcessItself) {
  std::array<int, 2> ends{};
  ASSERT_EQ(pipe(ends.data()), 0);
  ASSERT_EQ(write(ends[1], "[a]\nid=4\n", 9), 9);
  close(ends[1]);
  const std::string name = "/dev/fd/" + std::to_string(ends[0]);
  EXPECT_FALSE(reads(name, false));
  EXPECT_TRUE(reads(name, true));
  close(ends[0]);
}

}  // namespace
}  // namespace quenby
