#include "model/tariff_set.h"

#include <sstream>
#include <utility>

#include "model/number.h"
#include "model/rate.h"

namespace quenby {
namespace {

constexpr std::size_t kUsualTariffs = 256;
const std::string kWantedNumber =
    "a class number from " + std::to_string(kMinTariffId) + " to " + std::to_string(kMaxTariffId);
constexpr const char* kWantedPrefix =
    "an IPv6 address or prefix of a subscriber, with a length from 1 to 128";
constexpr const char* kWantedSize = "a number of bytes, 0 or more";

void write_direction(std::ostream& out, const std::string& prefix,
                     const TariffDirSettings& direction) {
  out << prefix << "_speed=" << direction.speedKbps() << '\n';
  const std::int64_t burst_rate = direction.burst_rate / kBitsPerKbit;
  if (burst_rate != 0) out << prefix << "_burst_rate=" << burst_rate << '\n';
  // Only 32 bits of a burst size are of any use to the kernel, and only they are stored.
  const std::int32_t burst_size = low32_signed(direction.burst_size);
  if (burst_size != 0) out << prefix << "_burst_size=" << burst_size << '\n';
}

void write_tariff(std::ostream& out, const TariffSettings& tariff) {
  out << '[' << tariff.name << "]\n";
  if (tariff.id != 0) out << "id=" << tariff.id << '\n';
  for (const std::string& address : tariff.address_texts) out << "ip=" << address << '\n';
  for (const Ip6Prefix& prefix : tariff.prefixes) out << "ip6=" << to_text(prefix) << '\n';
  if (tariff.aggregation_text != "1") out << "aggregation=" << tariff.aggregation_text << '\n';
  write_direction(out, "download", tariff.download);
  write_direction(out, "upload", tariff.upload);
  if (tariff.qdisc != kQdiscNone) out << "queuing_discipline=" << tariff.qdisc_str() << '\n';
}

}  // namespace

const KeyTable<TariffSettings>& tariff_keys() {
  using T = TariffSettings;
  using S = const std::string;
  static const KeyTable<T> kKeys = {
      {"id", {[](T& t, S& v) { return t.setID(v); }, kWantedNumber.c_str()}},
      {"ip", {[](T& t, S& v) { return t.addCIDR(v); }, "an IPv4 address"}},
      {"ip6", {[](T& t, S& v) { return t.addPrefix(v); }, kWantedPrefix}},
      {"download_speed", {[](T& t, S& v) { return t.download.setSpeed(v); }, kWantedRate}},
      {"upload_speed", {[](T& t, S& v) { return t.upload.setSpeed(v); }, kWantedRate}},
      {"aggregation", {[](T& t, S& v) { return t.setAggregation(v); }, "a number of 0 or more"}},
      {"download_burst_rate",
       {[](T& t, S& v) { return _set_rate(v, t.download.burst_rate); }, kWantedRate}},
      {"upload_burst_rate",
       {[](T& t, S& v) { return _set_rate(v, t.upload.burst_rate); }, kWantedRate}},
      {"download_burst_size",
       {[](T& t, S& v) { return parseBurstSize(v, t.download.burst_size); }, kWantedSize}},
      {"upload_burst_size",
       {[](T& t, S& v) { return parseBurstSize(v, t.upload.burst_size); }, kWantedSize}},
      {"queuing_discipline", {[](T& t, S& v) { return t.setQDisc(v); }, "a queuing discipline"}},
  };
  return kKeys;
}

bool TariffSet::addTariff(const TariffSettings& tariff) {
  return addTariff(TariffSettings(tariff));
}

bool TariffSet::addTariff(TariffSettings&& tariff) {
  if (tariff.name.empty()) return false;
  tariffs_.push_back(std::move(tariff));
  return true;
}

bool TariffSet::write(std::ofstream& out) const {
  if (!out.is_open()) return false;
  out << text();
  return true;
}

std::string TariffSet::text() const {
  std::ostringstream out;
  for (const TariffSettings& tariff : tariffs_) write_tariff(out, tariff);
  return out.str();
}

bool TariffSet::beginParse() {
  tariffs_.reserve(kUsualTariffs);
  return true;
}

bool TariffSet::onSection(const std::string& name) {
  if (!section_.empty() && !_pushObj()) return false;
  pending_.name = name;
  section_ = name;
  return true;
}

bool TariffSet::onKey(const std::string& section, const std::string& key,
                      const std::string& value) {
  if (section_.empty() || section != section_) return refuse(Refusal::Of::kKey, kNoSection);
  const auto refusal = set_key(tariff_keys(), key, pending_, value);
  return !refusal || refuse(refusal->of, refusal->reason);
}

bool TariffSet::endSection() {
  if (!section_.empty() && !_pushObj()) return false;
  section_.clear();
  return true;
}

bool TariffSet::endParse() {
  tariffs_.shrink_to_fit();
  return true;
}

bool TariffSet::_pushObj() {
  const bool added = addTariff(std::move(pending_));
  pending_.clear();
  return added || refuse(Refusal::Of::kSection, "section without a name");
}

}  // namespace quenby
