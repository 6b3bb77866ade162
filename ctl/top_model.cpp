#include "ctl/top_model.h"

#include <net/if.h>
#include <sys/stat.h>

#include <algorithm>
#include <ctime>

#include "config/paths.h"

namespace quenby {
namespace {

// One look at drops in two hundred times as long as it takes.
constexpr double kDropShare = 200;
constexpr double kShortest = 1e-6;

template <typename Time>
double seconds_between(const Time& from, const Time& to) {
  return std::chrono::duration<double>(to - from).count();
}

}  // namespace

TopModel::TopModel() { load(); }

TopModel::Stamp TopModel::stamp_of(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) return {};
  constexpr std::int64_t kNanoseconds = 1'000'000'000;
  return {status.st_dev, status.st_ino, status.st_size,
          status.st_mtim.tv_sec * kNanoseconds + status.st_mtim.tv_nsec};
}

TopModel::Surroundings TopModel::surroundings(const Shaping& shaping) {
  const std::string& device = shaping.directions[0].device;
  return {{stamp_of(kGlobalFile), stamp_of(kTariffFile)}, if_nametoindex(device.c_str()) != 0};
}

// Files that change while they are read are read again by the next look.
void TopModel::load() {
  const std::array<Stamp, 2> files = {stamp_of(kGlobalFile), stamp_of(kTariffFile)};
  Shaping shaping = read_shaping();
  auto reader = std::make_unique<CounterReader>(shaping.classes);
  Look look{reader->read_classes(), Clock::now()};
  loaded_ = {files, surroundings(shaping).has_device};
  shaping_ = std::move(shaping);
  reader_ = std::move(reader);
  last_ = last_drops_ = look;
  look_at_drops(look);
  activities_ = activity_between(look.counters, look.counters, 1);
  seconds_ = 0;
}

void TopModel::look_at_drops(Look& look) {
  const std::clock_t before = std::clock();
  reader_->add_leaf_drops(look.counters);
  const std::chrono::duration<double> used(static_cast<double>(std::clock() - before) /
                                           CLOCKS_PER_SEC);
  drops_due_ = look.at + std::chrono::duration_cast<Clock::duration>(used * kDropShare);
  drops_ = activity_between(last_drops_.counters, look.counters,
                            std::max(seconds_between(last_drops_.at, look.at), kShortest));
  last_drops_ = look;
}

void TopModel::take_over_drops(std::vector<Activity>& activities) const {
  for (std::size_t i = 0; i < activities.size(); ++i) {
    if (!activities[i].present) continue;
    activities[i].drops = std::max(activities[i].drops, drops_[i].drops);
    activities[i].drops_per_second = drops_[i].drops_per_second;
  }
}

void TopModel::sample(bool all) {
  if (surroundings(shaping_) != loaded_) return load();
  Look look{reader_->read_classes(), Clock::now()};
  if (all || look.at >= drops_due_) look_at_drops(look);
  seconds_ = std::max(seconds_between(last_.at, look.at), kShortest);
  activities_ = activity_between(last_.counters, look.counters, seconds_);
  take_over_drops(activities_);
  last_ = std::move(look);
}

}  // namespace quenby
