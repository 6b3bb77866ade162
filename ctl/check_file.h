#pragma once

#include <optional>
#include <string>

#include "config/ini_text.h"
#include "ctl/finding.h"
#include "model/global_set.h"
#include "model/tariff_set.h"

/// Reading a file with the program's own reader, past the lines that it refuses.
namespace quenby {

/// By which rules the program reads a file: one that an option names, or a stored one.
enum class FileKind { named, stored };

template <typename Config>
struct CheckedFile {
  /// Nothing when it could not be read; that is one of the errors then.
  std::optional<IniText> source;
  Findings errors;
  /// Of the lines that were accepted: what they say, and where.
  Config config;
  IniOutline outline;
  /// False where it is only there to complete another one: nothing is said about it.
  bool asked_for = true;
};

/// The first twenty errors of a file: each as the program would name it if the lines before it that
/// it refuses were not there. Where there are none, `config` is what the
/// program works with. Throws `NotRun` when the caller may not read the file.
CheckedFile<GlobalSet> check_global_file(const std::string& path, FileKind kind);
CheckedFile<TariffSet> check_tariff_file(const std::string& path, FileKind kind);

}  // namespace quenby
