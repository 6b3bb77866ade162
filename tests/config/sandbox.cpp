#include "tests/config/sandbox.h"

#include <sys/mount.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sched.h>
#include <unistd.h>

namespace quenby::test {
namespace {

namespace fs = std::filesystem;

constexpr const char* kMarker = "/quenby-test-root";
constexpr const char* kNewRoot = "/tmp/root";

// Skipped tests would count as passed, so that the program ends here.
void must(const std::string& what, bool done) {
  if (done) return;
  std::cerr << "FAILED: no private root for the tests: " << what << ": " << std::strerror(errno)
            << std::endl;
  std::exit(1);
}

void put(const std::string& path, const std::string& text) {
  std::ofstream out(path);
  out << text << std::flush;
  must(path, out.good());
}

// Root keeps its user namespace; anyone else becomes root in a new one.
void leave_mounts() {
  if (unshare(CLONE_NEWNS) == 0) return;
  const auto user = std::to_string(getuid());
  const auto group = std::to_string(getgid());
  must("unshare", unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0);
  put("/proc/self/setgroups", "deny");
  put("/proc/self/uid_map", "0 " + user + " 1");
  put("/proc/self/gid_map", "0 " + group + " 1");
}

void show(const fs::directory_entry& entry) {
  const std::string place = kNewRoot + entry.path().string();
  if (entry.is_symlink()) {
    fs::copy_symlink(entry.path(), place);
  } else if (entry.is_directory()) {
    fs::create_directory(place);
    must(place,
         mount(entry.path().c_str(), place.c_str(), nullptr, MS_BIND | MS_REC, nullptr) == 0);
  }
}

// Everything of the machine's root but /config and /tmp.
void fill_new_root() {
  for (const auto& entry : fs::directory_iterator("/")) {
    const fs::path& path = entry.path();
    if (path != "/config" && path != "/tmp") show(entry);
  }
  fs::create_directory(std::string(kNewRoot) + "/tmp");
  put(std::string(kNewRoot) + kMarker, "");
}

// A "sync" that syncs nothing and notes what the stored files look like.
void put_sync_in_path() {
  fs::create_directory("/stand-in");
  put("/stand-in/sync",
      "#!/bin/sh\n"
      "{ ls -A /config/tc; cat /config/tc/tc_tariff.ini; } >> /seen-by-sync 2>/dev/null\n");
  fs::permissions("/stand-in/sync", fs::perms{0755});
  const char* const path = std::getenv("PATH");
  must("PATH", path != nullptr);
  must("PATH", setenv("PATH", ("/stand-in:" + std::string(path)).c_str(), 1) == 0);
}

class Sandbox : public testing::Environment {
 public:
  void SetUp() override {
    leave_mounts();
    must("private mounts", mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0);
    must("tmpfs at /tmp", mount("tmpfs", "/tmp", "tmpfs", 0, nullptr) == 0);
    fs::create_directory(kNewRoot);
    fill_new_root();
    must("chroot", chroot(kNewRoot) == 0 && chdir("/") == 0);
    put_sync_in_path();
  }
};

const auto* const kSandbox = testing::AddGlobalTestEnvironment(new Sandbox);

}  // namespace

void StoredFiles::SetUp() {
  ASSERT_NE(kSandbox, nullptr);
  ASSERT_TRUE(fs::exists(kMarker)) << "not in the private root";
  umask(022);
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

OwnDisk::OwnDisk(const std::string& size, const char* place) : place_(place) {
  fs::create_directories(place);
  must("tmpfs", mount("tmpfs", place, "tmpfs", 0, ("size=" + size).c_str()) == 0);
}

OwnDisk::~OwnDisk() { must("umount", umount(place_) == 0); }

ReadOnlyDirectory::ReadOnlyDirectory() {
  must("bind mount", mount(kDirectory, kDirectory, nullptr, MS_BIND, nullptr) == 0);
  must("read-only mount",
       mount(nullptr, kDirectory, nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr) == 0);
}

ReadOnlyDirectory::~ReadOnlyDirectory() { must("umount", umount(kDirectory) == 0); }

}  // namespace quenby::test
