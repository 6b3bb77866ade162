#pragma once

#include <sys/types.h>

#include <unistd.h>

namespace quenby {

/// What a file that is made may be used for by whom, before the umask.
inline constexpr mode_t kNewFileMode = 0666;

/// Owner of an open file, which is closed with it. Below 0: there is none, it could not be opened.
class FileDescriptor {
 public:
  explicit FileDescriptor(int number) : number_(number) {}
  ~FileDescriptor() {
    if (is_open()) close(number_);
  }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;

  bool is_open() const { return number_ >= 0; }
  int get() const { return number_; }

  /// Hands the file to another owner.
  int release() {
    const int number = number_;
    number_ = -1;
    return number;
  }

 private:
  int number_;
};

}  // namespace quenby
