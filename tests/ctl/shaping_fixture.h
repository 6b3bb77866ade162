#pragma once

#include "ctl/packet_way.h"
#include "model/rate_resolution.h"
#include "tests/support/tariffs.h"

/// A router's stored files as values.
namespace quenby::test {

inline constexpr std::int64_t kMbit = 125'000;
/// A gigabit port that is there.
inline const PlanFacts kGigabitPort = {1000 * kMbit, {true, ""}};

inline TariffSettings shaped(const std::string& name, int id, const std::string& address,
                             const std::string& download = "1000",
                             const std::string& upload = "500") {
  TariffSettings result = tariff(name, id);
  result.addCIDR(address);
  result.download.setSpeed(download);
  result.upload.setSpeed(upload);
  return result;
}

/// 10 and 5 Mbit/s; without a WAN interface the IMQ device.
inline GlobalSet line(const std::string& wan = "eth1") {
  GlobalSet set;
  set.has_global = true;
  set.global.wan = wan;
  set.global.download.setSpeed("10000");
  set.global.upload.setSpeed("5000");
  return set;
}

/// How the classes of packets that have none of their own show on that line.
inline constexpr const char* kDefaultUpload =
    "  upload: eth1 class 8000:2 of \"system\", guarantee 0.064 kbit/s, ceiling 5000 kbit/s, queue "
    "fq_codel 8002:\n";
inline constexpr const char* kDefaultDownload =
    "  download: ifb_ingr class 8000:2 of \"system\", guarantee 0.064 kbit/s, ceiling 10000 "
    "kbit/s, queue fq_codel 8002:\n";

template <typename... T>
Edit load_of(const GlobalSet& global, const T&... tariffs) {
  Edit edit;
  edit.line_before = edit.line = global;
  edit.stored = edit.tariffs = set_of<TariffConfig>(tariffs...);
  edit.work = KernelWork::build;
  return edit;
}

/// What an edit comes to on a router whose WAN interface is there, or is not.
inline LineFacts line_facts(const Edit& edit, bool has_wan = true) {
  const TariffSet& tariffs = edit.tariffs;
  const PlanFacts facts = {kGigabitPort.link_speed, {has_wan, ""}};
  return {shaping_of(edit, facts), resolve(edit.line, tariffs, facts.link_speed)};
}

/// Tariffs "a" (number 4) and "b" (5).
inline Shaping two_tariffs() {
  return shaping_of(load_of(line(), shaped("a", 4, "10.0.0.1"), shaped("b", 5, "10.0.0.2", "2000")),
                    kGigabitPort);
}

}  // namespace quenby::test
