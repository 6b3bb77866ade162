#pragma once

#include <fstream>
#include <string>

#include "model/refusal.h"

namespace quenby {

/// What a configuration file is read into and written from. The reader calls the parse operations
/// in file order; false from `onSection` or `onKey` ends the parse as failed.
class ShaperConfigInterface {
 public:
  virtual ~ShaperConfigInterface() = default;
  ShaperConfigInterface() = default;
  ShaperConfigInterface(const ShaperConfigInterface&) = default;
  ShaperConfigInterface& operator=(const ShaperConfigInterface&) = default;

  /// Writes the sections and keys. False only when the stream is not open.
  virtual bool write(std::ofstream& out) const = 0;
  /// Before the first line.
  virtual bool beginParse() = 0;
  /// At each section header.
  virtual bool onSection(const std::string& name) = 0;
  /// At each key line; `section` is the header that stands above it, `key` is in lower case.
  virtual bool onKey(const std::string& section, const std::string& key,
                     const std::string& value) = 0;
  /// Once after the last line, after a failure too.
  virtual bool endSection() = 0;
  /// Last of all.
  virtual bool endParse() = 0;

  /// Why the last of these operations that returned false did.
  const Refusal& refusal() const { return refusal_; }

 protected:
  /// Keeps the reason. Always false.
  bool refuse(Refusal::Of of, const std::string& reason) {
    refusal_ = {of, reason};
    return false;
  }

 private:
  Refusal refusal_;
};

}  // namespace quenby
