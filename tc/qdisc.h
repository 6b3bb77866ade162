#pragma once

#include <cstdint>
#include <optional>

#include "model/tariff_dir_settings.h"
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

  bool operator==(const Qdisc&) const = default;
};

/// Parameters of an fq_codel qdisc: limit and quantum.
struct FqCodel {
  int limit = 0;
  std::uint32_t quantum = 0;
};

/// The parameters for a speed in kbit/s: a short queue for slow tariffs, a long one for gigabit
/// rates, and below 100 Mbit/s a small quantum that favours small packets.
FqCodel fq_codel_values(std::int64_t kbps);
/// Packets that a pfifo leaf holds.
int pfifo_limit(const BandwidthSettings& settings);
/// Packets that an sfq leaf holds; 127 is the most that the kernel's hash takes.
int sfq_limit(const BandwidthSettings& settings);

/// The root of a device's tree.
Qdisc htb_root(bool with_default);
/// The plain fair queue that takes its place while the line is blocked.
Qdisc plain_root(const BandwidthSettings& line);
/// What a redirection of incoming packets hangs on.
Qdisc ingress_qdisc();

/// A leaf of this kind (`kQdiscPfifo`, ...) under a tariff's class; nothing for any other number.
std::optional<Qdisc> leaf_of_kind(HandleScheme scheme, const TariffDirSettings& t, int kind);
/// The leaf that the tariff names.
std::optional<Qdisc> tariff_leaf(HandleScheme scheme, const TariffDirSettings& t);
/// The leaf under the default or default tariff's class.
Qdisc default_leaf(HandleScheme scheme, unsigned number, const BandwidthSettings& def);

}  // namespace quenby
