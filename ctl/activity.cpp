#include "ctl/activity.h"

namespace quenby {
namespace {

// Drops and overlimits are 32 bits in the kernel and begin again after the last of them, and a
// class that was made again begins at 0.
double per_second(std::uint64_t before, std::uint64_t after, double seconds) {
  return static_cast<double>(after >= before ? after - before : after) / seconds;
}

}  // namespace

Activity activity_between(const std::optional<ClassCounters>& before,
                          const std::optional<ClassCounters>& after, double seconds) {
  Activity activity;
  if (!after) return activity;
  activity.present = true;
  activity.packets = after->packets;
  activity.drops = after->drops;
  activity.backlog_bytes = after->backlog_bytes;
  if (!before) return activity;
  // One whose bytes have begun again has no counter of before.
  const ClassCounters from = after->bytes >= before->bytes ? *before : ClassCounters();
  activity.bytes_per_second = per_second(from.bytes, after->bytes, seconds);
  activity.packets_per_second = per_second(from.packets, after->packets, seconds);
  activity.drops_per_second = per_second(from.drops, after->drops, seconds);
  return activity;
}

}  // namespace quenby
