#pragma once

#include <string>

#include "model/default_settings.h"
#include "model/global_settings.h"
#include "model/key_table.h"
#include "model/shaper_config_interface.h"

namespace quenby {

/// The keys of the two sections of the global file.
const KeyTable<GlobalSettings>& global_keys();
const KeyTable<DefaultSettings>& default_keys();

/// The contents of the global file: the settings of the line and of the default tariff.
class GlobalSet : public ShaperConfigInterface {
 public:
  bool write(std::ofstream& out) const override;
  bool beginParse() override { return true; }
  bool onSection(const std::string& name) override;
  bool onKey(const std::string& section, const std::string& key, const std::string& value) override;
  bool endSection() override;
  bool endParse() override { return true; }

  /// Whether there is a default tariff that has a class in this direction.
  bool has_default_tariff(Direction way) const;

  /// The section that is being read; empty outside a parse.
  std::string section;
  GlobalSettings global;
  DefaultSettings defaults;
  /// Whether the file held the section.
  bool has_global = false;
  bool has_default = false;
};

}  // namespace quenby
