#pragma once

#include <string>

#include "model/key_table.h"
#include "model/shaper_config_interface.h"
#include "model/tariff_config_base.h"

namespace quenby {

/// The keys of a tariff section.
const KeyTable<TariffSettings>& tariff_keys();

/// The contents of a tariff file: one section per tariff, its name the section's.
class TariffSet : public TariffConfigBase, public ShaperConfigInterface {
 public:
  /// Appends a tariff. False, with nothing added, when it has no name. Neither sorts nor looks for
  /// a tariff of the same name.
  bool addTariff(const TariffSettings& tariff);
  bool addTariff(TariffSettings&& tariff);

  bool write(std::ofstream& out) const override;
  /// What `write` writes.
  std::string text() const;

  bool beginParse() override;
  bool onSection(const std::string& name) override;
  /// False for an unknown key, a refused value, and a key that stands above the first header.
  bool onKey(const std::string& section, const std::string& key, const std::string& value) override;
  bool endSection() override;
  bool endParse() override;

 protected:
  /// Adds the tariff whose section ends here and clears it for the next one. False when it was
  /// refused.
  virtual bool _pushObj();

  /// The tariff whose section is being read.
  TariffSettings pending_;

 private:
  /// The section that is being read; empty outside one.
  std::string section_;
};

}  // namespace quenby
