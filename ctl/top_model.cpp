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

TopModel::DropLook TopModel::with_drops(const CounterReader& reader, Look look) {
  const std::clock_t before = std::clock();
  reader.add_leaf_drops(look.counters);
  return {std::move(look), static_cast<double>(std::clock() - before) / CLOCKS_PER_SEC};
}

// Files that change while they are read are read again by the next look. Whatever can fail comes
// first.
void TopModel::load() {
  const std::array<Stamp, 2> files = {stamp_of(kGlobalFile), stamp_of(kTariffFile)};
  Shaping shaping = read_shaping();
  auto reader = std::make_unique<CounterReader>(shaping.classes);
  Look look{reader->read_classes(), Clock::now()};
  DropLook drops = with_drops(*reader, look);
  loaded_ = {files, surroundings(shaping).has_device};
  shaping_ = std::move(shaping);
  reader_ = std::move(reader);
  counters_ = std::move(look.counters);
  times_.assign(counters_.size(), look.at);
  looked_ = look.at;
  last_drops_ = drops.look;
  drops_.assign(counters_.size(), {});
  take_over(std::move(drops));
  activities_.assign(counters_.size(), {});
  for (std::size_t i = 0; i < counters_.size(); ++i) take_over(i, counters_[i], look.at);
  seconds_ = 0;
}

void TopModel::take_over(DropLook drops) {
  const double seconds = std::max(seconds_between(last_drops_.at, drops.look.at), kShortest);
  for (std::size_t i = 0; i < drops_.size(); ++i)
    drops_[i] = activity_between(last_drops_.counters[i], drops.look.counters[i], seconds);
  last_drops_ = std::move(drops.look);
  const std::chrono::duration<double> pause(drops.used * kDropShare);
  drops_due_ = last_drops_.at + std::chrono::duration_cast<Clock::duration>(pause);
}

void TopModel::take_over(std::size_t place, const std::optional<ClassCounters>& counters,
                         Clock::time_point at) {
  const double seconds = std::max(seconds_between(times_[place], at), kShortest);
  Activity& activity = activities_[place];
  activity = activity_between(counters_[place], counters, seconds);
  if (activity.present) {
    activity.drops = std::max(activity.drops, drops_[place].drops);
    activity.drops_per_second = drops_[place].drops_per_second;
  }
  counters_[place] = counters;
  times_[place] = at;
}

void TopModel::look_at_all(bool drops) {
  if (surroundings(shaping_) != loaded_) return load();
  const Look look{reader_->read_classes(), Clock::now()};
  if (drops || look.at >= drops_due_) take_over(with_drops(*reader_, look));
  seconds_ = std::max(seconds_between(looked_, look.at), kShortest);
  looked_ = look.at;
  for (std::size_t i = 0; i < look.counters.size(); ++i) take_over(i, look.counters[i], look.at);
}

void TopModel::look_at(const std::vector<std::size_t>& places) {
  const Look look{reader_->read_classes(places), Clock::now()};
  for (std::size_t i = 0; i < places.size(); ++i) take_over(places[i], look.counters[i], look.at);
}

}  // namespace quenby
