#include "ctl/check_file.h"

#include "config/read_config.h"
#include "ctl/readable.h"

namespace quenby {
namespace {

constexpr std::size_t kMostErrors = 20;

std::optional<ParseError> read(const IniText& text, FileKind /*kind*/, GlobalSet& config,
                               IniOutline& outline) {
  return text.read_ini(config, &outline);
}

std::optional<ParseError> read(const IniText& text, FileKind kind, TariffSet& config,
                               IniOutline& outline) {
  if (kind == FileKind::named) return read_named(text, config, &outline);
  TariffConfig stored;
  auto error = check_stored(text, stored, &outline);
  const TariffSet& tariffs = stored;
  config = tariffs;
  return error;
}

Finding to_finding(const ParseError& error) {
  return {error.file, error.at, Severity::error, "refused", error.reason};
}

template <typename Config>
CheckedFile<Config> check_file(const std::string& path, FileKind kind) {
  expect_readable(path);
  CheckedFile<Config> file;
  if (const auto error = read_text(path, kind == FileKind::named, file.source)) {
    file.errors.push_back(to_finding(*error));
    return file;
  }
  std::optional<IniText> left = file.source;
  while (left && file.errors.size() < kMostErrors) {
    file.config = Config();
    file.outline.clear();
    const auto error = read(*left, kind, file.config, file.outline);
    if (!error) break;
    file.errors.push_back(to_finding(*error));
    left = left->without(error->at);
  }
  return file;
}

}  // namespace

CheckedFile<GlobalSet> check_global_file(const std::string& path, FileKind kind) {
  return check_file<GlobalSet>(path, kind);
}

CheckedFile<TariffSet> check_tariff_file(const std::string& path, FileKind kind) {
  return check_file<TariffSet>(path, kind);
}

}  // namespace quenby
