#include "tests/config/sandbox.h"

#include <sys/mount.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <sched.h>
#include <unistd.h>

namespace quenby::test {
namespace {

namespace fs = std::filesystem;

constexpr const char* kMarker = "/quenby-test-root";
constexpr const char* kNewRoot = "/tmp/root";

bool must(const char* what, int result) {
  if (result == 0) return true;
  ADD_FAILURE() << "no private root for the tests: " << what << ": " << std::strerror(errno);
  return false;
}

// Root keeps its user namespace; anyone else becomes root in a new one.
bool leave_mounts() {
  if (unshare(CLONE_NEWNS) == 0) return true;
  const auto user = std::to_string(getuid());
  const auto group = std::to_string(getgid());
  if (!must("unshare", unshare(CLONE_NEWUSER | CLONE_NEWNS))) return false;
  write_file("/proc/self/setgroups", "deny");
  write_file("/proc/self/uid_map", "0 " + user + " 1");
  write_file("/proc/self/gid_map", "0 " + group + " 1");
  return !testing::Test::HasFailure();
}

bool show(const fs::directory_entry& entry) {
  const std::string place = kNewRoot + entry.path().string();
  if (entry.is_symlink()) {
    fs::copy_symlink(entry.path(), place);
    return true;
  }
  if (!entry.is_directory()) return true;
  fs::create_directory(place);
  return must(place.c_str(),
              mount(entry.path().c_str(), place.c_str(), nullptr, MS_BIND | MS_REC, nullptr));
}

// Everything of the machine's root but /config and /tmp.
bool fill_new_root() {
  for (const auto& entry : fs::directory_iterator("/")) {
    const fs::path& path = entry.path();
    if (path != "/config" && path != "/tmp" && !show(entry)) return false;
  }
  fs::create_directory(std::string(kNewRoot) + "/tmp");
  write_file(std::string(kNewRoot) + kMarker, "");
  return true;
}

// A "sync" that syncs nothing and notes what the stored files look like.
void put_sync_in_path() {
  fs::create_directory("/stand-in");
  write_file("/stand-in/sync",
             "#!/bin/sh\n{ ls -A /config/tc; cat /config/tc/tc_tariff.ini; } >> /seen-by-sync\n");
  ASSERT_EQ(chmod("/stand-in/sync", 0755), 0);
  const std::string path = std::getenv("PATH");
  ASSERT_EQ(setenv("PATH", ("/stand-in:" + path).c_str(), 1), 0);
}

class Sandbox : public testing::Environment {
 public:
  void SetUp() override {
    ASSERT_TRUE(leave_mounts());
    ASSERT_TRUE(must("private mounts", mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr)));
    ASSERT_TRUE(must("tmpfs at /tmp", mount("tmpfs", "/tmp", "tmpfs", 0, nullptr)));
    fs::create_directory(kNewRoot);
    ASSERT_TRUE(fill_new_root());
    ASSERT_TRUE(must("chroot", chroot(kNewRoot)));
    ASSERT_TRUE(must("chdir", chdir("/")));
    put_sync_in_path();
  }
};

const auto* const kSandbox = testing::AddGlobalTestEnvironment(new Sandbox);

}  // namespace

void StoredFiles::SetUp() {
  ASSERT_NE(kSandbox, nullptr);
  ASSERT_TRUE(fs::exists(kMarker)) << "not in the private root";
  fs::remove_all("/config");
  fs::remove("/seen-by-sync");
  for (const auto& entry : fs::directory_iterator("/tmp")) fs::remove_all(entry);
}

void StoredFiles::store(const std::string& text) {
  fs::create_directories(kDirectory);
  write_file(kTariffs, text);
}

std::string StoredFiles::seen_by_sync() {
  return fs::exists("/seen-by-sync") ? read_file("/seen-by-sync") : "";
}

FullDisk::FullDisk() {
  fs::create_directories(kDirectory);
  EXPECT_TRUE(must("small tmpfs", mount("tmpfs", kDirectory, "tmpfs", 0, "size=4k")));
}

FullDisk::~FullDisk() { EXPECT_TRUE(must("umount", umount(kDirectory))); }

}  // namespace quenby::test
