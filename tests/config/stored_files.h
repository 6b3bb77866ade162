#pragma once

#include <sys/resource.h>

#include <csignal>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

#include "config/system_config.h"
#include "tests/support/files.h"
#include "tests/support/tariffs.h"

namespace quenby::test {

/// The stored files in a folder of the test's own, which is not there before the first save.
class StoredFiles : public testing::Test {
 protected:
  StoredFiles() {
    umask(022);
    std::filesystem::create_directories(temporary());
    std::filesystem::create_directories(file("bin"));
    write_file(file("bin/sync"), "#!/bin/sh\n{ ls -A '" + folder() + "'; cat '" + tariff_file() +
                                     "'; } >>'" + file("seen") + "' 2>/dev/null\n");
    std::filesystem::permissions(file("bin/sync"), std::filesystem::perms{0755});
    setenv("PATH", (file("bin:") + path_).c_str(), 1);
  }
  ~StoredFiles() override {
    umask(022);
    setenv("PATH", path_.c_str(), 1);
  }

  std::string file(const std::string& name) const { return scratch_.file(name); }
  std::string folder() const { return file("config/tc"); }
  std::string global_file() const { return folder() + "/tc_global.ini"; }
  std::string tariff_file() const { return folder() + "/tc_tariff.ini"; }
  /// Where copies pass through.
  std::string temporary() const { return file("tmp"); }

  GlobalSystemConfig global() const { return GlobalSystemConfig(folder()); }
  TariffSystemConfig tariffs() const { return TariffSystemConfig(folder(), temporary()); }

  /// Makes the folder with a tariff file.
  void store(const std::string& text) const {
    std::filesystem::create_directories(folder());
    write_file(tariff_file(), text);
  }
  std::string stored() const { return read_file(tariff_file()); }
  std::vector<std::string> names() const { return names_in(folder()); }

  /// What `ls` and the tariff file showed while "sync" ran, for which a stand-in runs; "" when it
  /// did not run.
  std::string seen_by_sync() const {
    return std::filesystem::exists(file("seen")) ? read_file(file("seen")) : "";
  }

 private:
  ScratchDirectory scratch_;
  const std::string path_ = std::getenv("PATH");
};

/// What is written of a tariff that has a number and nothing else.
inline std::string text_of(const std::string& name, int id) {
  return "[" + name + "]\nid=" + std::to_string(id) + "\ndownload_speed=0\nupload_speed=0\n";
}

/// A name that makes a section longer than a small disk.
inline const std::string kLongName(8000, 'l');

/// From now on no file gets longer than 4096 bytes, as on a disk that is full by then.
inline void make_disk_small() {
  const rlimit limit{4096, 4096};
  std::signal(SIGXFSZ, SIG_IGN);
  setrlimit(RLIMIT_FSIZE, &limit);
}

/// The save ends the process with this one line, an expression.
template <typename Save>
void expect_failure(const std::string& message, const Save& save) {
  EXPECT_EXIT(save(), testing::ExitedWithCode(1),
              testing::MatchesRegex("Error: failed to " + message + "\n"));
}

}  // namespace quenby::test
