#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

#include "config/system_config.h"
#include "tests/support/files.h"
#include "tests/support/tariffs.h"

namespace quenby::test {

/// Tests of the stored files, whose paths are fixed. The program runs in a root of its own, in a
/// private mount namespace: /config and /tmp are not the machine's. Where that is not possible the
/// whole program fails before its first test.
class StoredFiles : public testing::Test {
 protected:
  /// Starts with an empty /tmp and without /config.
  void SetUp() override;

  /// Makes /config/tc with a tariff file.
  static void store(const std::string& text);

  /// What `ls` and the tariff file showed while "sync" ran; "" when it did not run. A stand-in for
  /// the command records it.
  static std::string seen_by_sync();
};

/// What is written of a tariff that has a number and nothing else.
inline std::string text_of(const std::string& name, int id) {
  return "[" + name + "]\nid=" + std::to_string(id) + "\ndownload_speed=0\nupload_speed=0\n";
}

inline constexpr const char* kDirectory = "/config/tc";
inline constexpr const char* kTariffs = "/config/tc/tc_tariff.ini";
inline constexpr const char* kGlobal = "/config/tc/tc_global.ini";

/// Mounts a file system of its own at `place`. Unmounted with the object.
class OwnDisk {
 public:
  /// `size` as tmpfs takes it.
  explicit OwnDisk(const std::string& size = "1m", const char* place = kDirectory);
  ~OwnDisk();
  OwnDisk(const OwnDisk&) = delete;
  OwnDisk& operator=(const OwnDisk&) = delete;

 private:
  const char* place_;
};

/// A file system of one page, which is full at once.
class FullDisk : public OwnDisk {
 public:
  explicit FullDisk(const char* place = kDirectory) : OwnDisk("4k", place) {}
};

/// Makes /config/tc read-only while it lives.
class ReadOnlyDirectory {
 public:
  ReadOnlyDirectory();
  ~ReadOnlyDirectory();
  ReadOnlyDirectory(const ReadOnlyDirectory&) = delete;
  ReadOnlyDirectory& operator=(const ReadOnlyDirectory&) = delete;
};

}  // namespace quenby::test
