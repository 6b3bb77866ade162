#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "config/tariff_ini_file.h"
#include "model/global_set.h"
#include "model/tariff_config.h"
#include "tests/support/files.h"
#include "tests/support/tariffs.h"

namespace quenby::test {

/// One INI file that is written, read and modified.
class IniFile : public testing::Test {
 protected:
  /// Reads `text` into `cfg`.
  bool parse(const std::string& text, ShaperConfigInterface& cfg) {
    write_file(path(), text);
    return TariffIniFile(path(), true).parse_ini(cfg);
  }

  /// What `cfg` writes.
  std::string written(const ShaperConfigInterface& cfg) {
    std::ofstream out(scratch_.file("written.ini"));
    EXPECT_TRUE(cfg.write(out));
    out.close();
    return read_file(scratch_.file("written.ini"));
  }

  std::string path() const { return scratch_.file("file.ini"); }
  const ScratchDirectory& scratch() const { return scratch_; }

 private:
  ScratchDirectory scratch_;
};

}  // namespace quenby::test
