#include "shaper/repair.h"

#include <stdexcept>
#include <utility>

#include "shaper/connections.h"
#include "shaper/ipv6_note.h"
#include "tc/links.h"

namespace quenby {
namespace {

// Mends one device after the other.
class Mender {
 public:
  explicit Mender(Session& session) : session_(session) {}

  void mend(const std::vector<Drift>& drifts, bool last) {
    for (const Drift& drift : drifts) {
      const auto* const mendings = std::get_if<Mendings>(&drift.cure);
      if (mendings == nullptr || drift.last != last) continue;
      attempt([&] {
        for (const Mending& mending : *mendings) mend(drift.place, mending);
      });
    }
  }

  template <typename Action>
  void attempt(const Action& action) {
    try {
      action();
    } catch (const std::runtime_error& failure) {
      failures_.push_back(failure.what());
    }
  }

  std::vector<std::string> failures() && { return std::move(failures_); }

 private:
  void mend(const std::string& place, const Mending& mending) {
    if (place != device_.name) look_up(place);
    quenby::mend(device_, mending, session_.links.get());
    if (std::holds_alternative<MakeDevice>(mending)) look_up(place);
  }

  void look_up(const std::string& name) {
    link_ = find_link(session_.links.get(), name);
    const int ifindex = link_ == nullptr ? 0 : rtnl_link_get_ifindex(link_.get());
    device_ = {name, session_.route.get(), link_.get(), ifindex};
  }

  Session& session_;
  std::vector<std::string> failures_;
  LinkPtr link_{nullptr, rtnl_link_put};
  Device device_;
};

template <typename Key>
void take_out(const Session& session, const std::vector<Key>& addresses) {
  for (const Key& address : addresses) delete_address(session.netfilter, address);
}

template <typename Key>
void put_in(const Session& session, Family family, const SetDriftOf<Key>& set) {
  if (set.make) create_address_set(session.netfilter, family);
  for (const SetEntry<Key>& entry : set.put) add_address(session.netfilter, entry);
}

}  // namespace

std::vector<std::string> repair(Session& session, const StateDrift& drift) {
  Mender mender(session);
  if (!drift.note.empty()) mender.attempt(note_ipv6);
  mender.attempt([&] { take_out(session, drift.set.drop); });
  mender.attempt([&] { take_out(session, drift.prefix_set.drop); });
  mender.mend(drift.devices, false);
  mender.attempt([&] { put_in(session, Family::ipv4, drift.set); });
  mender.attempt([&] { put_in(session, Family::ipv6, drift.prefix_set); });
  mender.mend(drift.devices, true);
  mender.mend(drift.commands, false);
  return std::move(mender).failures();
}

void repair_connections(const Session& session, const WantedState& wanted) {
  if (!wanted.shaped || wanted.wan.empty()) return;
  const MarkTable marks(wanted.state.addresses, wanted.state.prefixes);
  mend_marks(session.netfilter, marks, any_mark());
  if (wanted.state.ipv6) mend_ip6_marks(session.netfilter, marks, any_mark());
}

}  // namespace quenby
