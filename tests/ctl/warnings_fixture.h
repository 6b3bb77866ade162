#pragma once

#include <gmock/gmock.h>
#include <optional>
#include <string>
#include <vector>

#include "ctl/warnings.h"
#include "tests/support/files.h"

/// What a check warns of in files of these texts.
namespace quenby::test {

// "LINE:COLUMN CODE" of each.
inline std::vector<std::string> places(Findings findings) {
  sort_by_place(findings);
  std::vector<std::string> lines;
  for (const Finding& f : findings) {
    EXPECT_EQ(f.severity, Severity::warning);
    lines.push_back(std::to_string(f.at.line) + ":" + std::to_string(f.at.column) + " " + f.code);
  }
  return lines;
}

inline constexpr std::int64_t kMbit = 125'000;

class Warnings : public testing::Test {
 protected:
  CheckedFile<TariffSet> tariffs(const std::string& text, FileKind kind = FileKind::named) const {
    write_file(directory_.file("tariffs.ini"), text);
    return check_tariff_file(directory_.file("tariffs.ini"), kind);
  }
  CheckedFile<GlobalSet> line(const std::string& text) const {
    write_file(directory_.file("global.ini"), text);
    return check_global_file(directory_.file("global.ini"), FileKind::named);
  }

  // The findings of a tariff "a" that has these lines besides what it needs; line 5 is the first.
  Findings of_tariff(const std::string& lines, FileKind kind = FileKind::named) const {
    return of_tariffs("[a]\nip=10.0.0.9\ndownload_speed=100\nupload_speed=100\n" + lines, kind);
  }
  Findings of_tariffs(const std::string& text, FileKind kind = FileKind::named) const {
    const auto file = tariffs(text, kind);
    EXPECT_THAT(file.errors, testing::IsEmpty()) << text;
    Findings findings;
    warn_of_values(file, findings);
    warn_of_sections(file, kind, findings);
    warn_of_rates({nullptr, &file, {}}, findings);
    return findings;
  }
  Findings of_line(const std::string& text) const {
    const auto file = line(text);
    EXPECT_THAT(file.errors, testing::IsEmpty()) << text;
    Findings findings;
    warn_of_values(file, findings);
    warn_of_sections(file, findings);
    warn_of_rates({&file, nullptr, {}}, findings);
    return findings;
  }
  Findings of_both(const std::string& line_text, const std::string& tariff_text,
                   std::optional<std::int64_t> port_speed = {}) const {
    const auto global = line(line_text);
    const auto all = tariffs(tariff_text);
    Findings findings;
    warn_of_rates({&global, &all, port_speed}, findings);
    return findings;
  }

 private:
  ScratchDirectory directory_;
};

inline std::string only_text(const Findings& findings) {
  EXPECT_EQ(findings.size(), 1U);
  return findings.empty() ? "" : findings.front().text;
}

}  // namespace quenby::test
