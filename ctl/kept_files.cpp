#include "ctl/kept_files.h"

#include <sys/stat.h>

#include <boost/filesystem.hpp>
#include <fcntl.h>
#include <fstream>
#include <iterator>

#include "config/durable_file.h"
#include "config/file_descriptor.h"
#include "config/file_error.h"
#include "config/system_config.h"
#include "config/temporary_file.h"
#include "ctl/status.h"

namespace quenby {
namespace {

namespace fs = boost::filesystem;

constexpr mode_t kOwnerOnly = 0600;
constexpr mode_t kFolderMode = 0700;

bool present(const std::string& path) {
  struct stat status {};
  if (lstat(path.c_str(), &status) == 0) return true;
  if (errno != ENOENT) throw_file_error("cannot read status", path);
  return false;
}

void sync_or_throw(const std::string& path) {
  if (!sync_folder_of(path)) throw_file_error("cannot sync folder", path);
}

void make_private(const std::string& path) {
  const FileDescriptor file(
      open(path.c_str(), O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC | O_WRONLY, kOwnerOnly));
  if (!file.is_open()) throw_file_error("cannot create file", path);
}

// Nothing where there is no file.
std::optional<std::string> contents(const std::string& path) {
  std::ifstream file(path);
  if (!file.is_open() && errno == ENOENT) return {};
  if (!file.is_open()) throw_file_error("cannot open file", path);
  return std::string{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

// Only what this class makes. Somebody else's files stay, and are then in the way of the next.
bool is_ours(const std::string& name) {
  return "/" + name == kGlobalName || "/" + name == kTariffName || name.rfind("change", 0) == 0;
}

}  // namespace

// Whoever has no lock may come between a change and its end.
std::optional<ChangeRecord> KeptFiles::record() const {
  for (const std::string& path : {taking_back_file(), change_file()}) {
    const std::optional<std::string> text = contents(path);
    if (!text) continue;
    ChangeRecord record = record_from(*text, path);
    if (path == taking_back_file()) record.state = ChangeState::taking_back;
    return record;
  }
  return {};
}

void KeptFiles::keep(ChangeRecord& record) const {
  make_config_directory(stored_);
  remove_rest();
  if (mkdir(folder_.c_str(), kFolderMode) != 0) throw_file_error("cannot make folder", folder_);
  try {
    record.had_global = keep_file(kGlobalName);
    record.had_tariffs = keep_file(kTariffName);
    sync_or_throw(folder_);
    write(record);
  } catch (...) {
    unlink(change_file().c_str());
    remove_rest();
    throw;
  }
}

bool KeptFiles::keep_file(const std::string& name) const {
  const std::string stored = stored_ + name;
  if (!present(stored)) return false;
  if (fs::symlink_status(stored).type() != fs::regular_file)
    throw NotRun(stored + " is not a regular file: no other is kept");
  const std::string copy = folder_ + name;
  make_private(copy);
  copy_contents(stored, copy);
  finish_file(copy, stored);
  return true;
}

void KeptFiles::write(const ChangeRecord& record) const {
  TemporaryFile file = TemporaryFile::create(change_file() + "-%%%%");
  if (!append_text(file.path(), to_text(record)))
    throw_file_error("cannot write file", file.path());
  file.replace(change_file());
}

void KeptFiles::wait(const ChangeRecord& record) const {
  ChangeRecord waiting = record;
  waiting.state = ChangeState::waiting;
  write(waiting);
}

void KeptFiles::begin_taking_back() const {
  if (!present(taking_back_file())) fs::rename(change_file(), taking_back_file());
  sync_or_throw(change_file());
}

void KeptFiles::put_back(const ChangeRecord& record) const {
  put_back_file(kGlobalName, record.had_global);
  put_back_file(kTariffName, record.had_tariffs);
  sync_or_throw(stored_ + kTariffName);
}

void KeptFiles::put_back_file(const std::string& name, bool existed) const {
  if (!existed) {
    remove_file(stored_ + name);
  } else if (present(folder_ + name)) {
    fs::rename(folder_ + name, stored_ + name);
  }
}

void KeptFiles::name_new_wan(const ChangeRecord& record) const {
  // The former file must not be lost where it is back already.
  if (record.had_global && !present(folder_ + kGlobalName)) return;
  GlobalSet line;
  line.has_global = true;
  line.global.wan = record.wan;
  GlobalSystemConfig(stored_).cfgSave(line);
}

void KeptFiles::forget() const {
  const std::string path = present(taking_back_file()) ? taking_back_file() : change_file();
  remove_file(path);
  remove_rest();
}

void KeptFiles::remove_rest() const noexcept {
  boost::system::error_code error;
  for (fs::directory_iterator at(folder_, error), end; !error && at != end; at.increment(error)) {
    if (is_ours(at->path().filename().string())) unlink(at->path().c_str());
  }
  rmdir(folder_.c_str());
}

}  // namespace quenby
