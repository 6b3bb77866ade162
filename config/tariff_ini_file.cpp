#include "config/tariff_ini_file.h"

#include <boost/filesystem.hpp>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <fstream>

#include "cli/error.h"
#include "config/ini_parser.h"
#include "config/line_reader.h"
#include "config/temporary_file.h"

namespace quenby {
namespace {

namespace fs = boost::filesystem;

bool is_space(char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }

bool copy_other_sections(LineReader& lines, const TariffSet& dropped, std::ofstream& out) {
  bool keep = true;
  std::string section;
  while (char* const line = lines.next()) {
    if (*line == '[') {
      if (!TariffIniFile::parse_section(line + 1, section)) return false;
      keep = !dropped.exists(section);
      if (keep) out << '[' << section << "]\n";
    } else if (keep) {
      out << TariffIniFile::trim_right(line) << '\n';
    }
  }
  return lines.at_end();
}

// False when any of it did not reach the file.
bool write_and_close(const ShaperConfigInterface& cfg, std::ofstream& out) {
  const bool written = cfg.write(out);
  out.close();
  return written && out.good();
}

void put_in_place(TemporaryFile& file, const std::string& target) {
  // A failing "sync" ends nothing: the file and its folder are synced by themselves.
  [[maybe_unused]] const int status = std::system("sync");
  file.replace(target);
}

}  // namespace

TariffIniFile::TariffIniFile(const std::string& path, bool command_line, const std::string& folder)
    : path_(path), command_line_(command_line), folder_(folder) {}

bool TariffIniFile::parse_ini(ShaperConfigInterface& cfg) { return !read_ini(cfg); }

std::optional<ParseError> TariffIniFile::read_ini(ShaperConfigInterface& cfg) const {
  LineReader lines(path_, command_line_);
  if (!lines.is_open()) return ParseError{path_, {}, lines.failure()};
  std::optional<ParseError> error = IniParser(lines, cfg).parse();
  if (error) error->file = path_;
  return error;
}

Position TariffIniFile::find_section(const std::string& name) const {
  LineReader lines(path_, command_line_);
  return quenby::find_section(lines, name);
}

Position find_section(LineReader& lines, const std::string& name) {
  Position found;
  while (char* const line = lines.is_open() ? lines.next() : nullptr) {
    std::string section;
    if (*line == '[' && TariffIniFile::parse_section(line + 1, section) && section == name)
      found = lines.position(TariffIniFile::trim_left(line + 1));
  }
  return found;
}

bool TariffIniFile::parse_section(char* text, std::string& name) {
  char* const begin = trim_left(text);
  char* const bracket = std::strchr(begin, ']');
  if (bracket == nullptr) return false;
  name = trim_right(begin, bracket);
  return !name.empty();
}

char* TariffIniFile::trim_left(char* text) {
  while (is_space(*text)) ++text;
  return text;
}

char* TariffIniFile::trim_right(char* begin, char* end) {
  while (end > begin && is_space(*(end - 1))) --end;
  *end = '\0';
  return begin;
}

char* TariffIniFile::trim_right(char* begin) {
  return trim_right(begin, begin + std::strlen(begin));
}

bool TariffIniFile::modify_ini(const TariffSet& set, const std::string& out_path) {
  LineReader lines(path_, command_line_);
  if (!lines.is_open()) return false;
  std::ofstream out(out_path);
  if (!out.is_open() || !copy_other_sections(lines, set, out)) return false;
  out.close();
  return out.good();
}

void TariffIniFile::cfgSave(const ShaperConfigInterface& cfg) {
  bool written = false;
  try {
    make_config_directory(folder_);
    TemporaryFile temporary(path_ + ".tmp");
    if (temporary.make()) {
      std::ofstream out(temporary.path());
      written = write_and_close(cfg, out);
    }
    if (written) put_in_place(temporary, path_);
  } catch (const fs::filesystem_error& e) {
    _error("failed to copy configuration", e);
  } catch (...) {
    _error("failed to copy configuration");
  }
  if (!written) _error("failed to save configuration");
}

void TariffIniFile::updSave(const TariffSet& set) {
  bool written = false;
  try {
    TemporaryFile temporary(fs::unique_path(path_ + "-%%%%").string());
    if (temporary.make() && modify_ini(set, temporary.path())) {
      std::ofstream out(temporary.path(), std::ios::app);
      written = write_and_close(set, out);
    }
    if (written) put_in_place(temporary, path_);
  } catch (const fs::filesystem_error& e) {
    _error("failed to update configuration", e);
  }
  if (!written) _error("failed to update configuration");
}

}  // namespace quenby
