#pragma once

#include <compare>
#include <cstdint>
#include <optional>

#include "model/resolved_settings.h"
#include "tc/handles.h"

/// Which qdiscs there are, as values: nothing here needs a socket.
namespace quenby {

enum class QdiscKind { htb, ingress, fq_codel, pfifo, sfq };

/// The name by which kernel, libnl and tc know the kind.
const char* kind_name(QdiscKind kind);

/// A qdisc as the kernel receives it. Handle and parent as in tc/handles.h.
struct Qdisc {
  QdiscKind kind = QdiscKind::pfifo;
  std::uint32_t handle = 0;
  std::uint32_t parent = 0;
  /// The queue in packets: fq_codel, pfifo and sfq.
  int limit = 0;
  /// The bytes that a flow of fq_codel may send in one turn; 0: the kernel's own choice.
  std::uint32_t quantum = 0;
  /// The class minor that unclassified packets of HTB go to; 0: they pass unshaped.
  std::uint32_t default_class = 0;

  // The linter takes the 0 in what the compiler makes of it for a pointer.
  auto operator<=>(const Qdisc&) const = default;  // NOLINT(modernize-use-nullptr)
};

/// Parameters of an fq_codel qdisc: limit and quantum.
struct FqCodel {
  int limit = 0;
  std::uint32_t quantum = 0;
};

/// The parameters for a speed in kbit/s: a short queue for slow tariffs, a long one for gigabit
/// rates, and below 100 Mbit/s a small quantum that favours small packets.
FqCodel fq_codel_values(std::int64_t kbps);
/// Packets that a pfifo leaf holds at a speed in bytes per second.
int pfifo_limit(std::int64_t speed);
/// Packets that an sfq leaf holds; 127 is the most that the kernel's hash takes.
int sfq_limit(std::int64_t speed);

/// The root of a device's tree.
Qdisc htb_root(bool with_default);
/// The plain fair queue that takes its place while the line is blocked.
Qdisc plain_root(std::int64_t speed);
/// The same where the link's neighbour discovery has to pass: what else is to be dropped, the
/// firewall drops.
Qdisc plain_root_for_discovery(std::int64_t speed);
/// How many packets that holds.
inline constexpr int kDiscoveryLimit = 64;
/// What a redirection of incoming packets hangs on.
Qdisc ingress_qdisc();

/// The leaf that a tariff names; nothing when that is no kind.
std::optional<Qdisc> tariff_leaf(HandleScheme scheme, const ResolvedTariff& t);
/// The leaf under the default or default tariff's class.
Qdisc default_leaf(HandleScheme scheme, unsigned number, std::int64_t speed);

}  // namespace quenby
