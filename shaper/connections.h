#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "shaper/mark_table.h"
#include "tc/nl_types.h"

/// The marks of live connections, over ctnetlink (linux/netfilter/nfnetlink_conntrack.h):
///
///   dump    mark, mark mask
///   change  original tuple, zone, mark, mark mask
///
/// A connection keeps the mark that its first packet got. When an address gets another mark, its
/// open connections follow here. Nothing of this is a failure of the run: a kernel without
/// connection tracking has no marks to mend, and a connection may end at any moment.
namespace quenby {

/// A connection that carries a mark. Addresses in network order, the mark in host order.
template <typename Address>
struct ConnectionOf {
  /// The attributes that name the connection to the kernel, as it sent them.
  std::string original_tuple;
  std::optional<std::uint16_t> zone;

  Address source{};
  Address reply_source{};
  std::uint32_t mark = 0;
};

using Connection = ConnectionOf<std::uint32_t>;
using Ip6Connection = ConnectionOf<Ip6Address>;

/// Which connections are looked at: those whose mark has these bits under the mask. The kernel
/// picks them out.
struct MarkFilter {
  std::uint32_t mark = 0;
  std::uint32_t mask = 0;
};

/// Connections that carry any mark of ours.
MarkFilter any_mark();
/// Connections that carry one of `marks`, or, if there are several, any mark of ours: one walk of
/// the kernel's table either way.
MarkFilter one_of(const std::vector<std::uint32_t>& marks);

/// The connections that the filter picks; none when the kernel cannot tell.
std::vector<Connection> list_connections(const SocketPtr& netfilter, const MarkFilter& filter);
std::vector<Ip6Connection> list_ip6_connections(const SocketPtr& netfilter,
                                                const MarkFilter& filter);

/// Gives each of these connections the mark that its addresses have in `marks`, in our bits alone.
/// One that has it already costs no request.
void mend_marks(const SocketPtr& netfilter, const MarkTable& marks, const MarkFilter& filter);
/// The same for those of IPv6.
void mend_ip6_marks(const SocketPtr& netfilter, const MarkTable& marks, const MarkFilter& filter);

}  // namespace quenby
