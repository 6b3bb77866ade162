#pragma once

#include <linux/netlink.h>
#include <linux/rtnetlink.h>

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "tc/nl_types.h"
#include "tests/golden/replies.h"

namespace golden {

/// Ifindexes that the kernel of these tests gives to the devices.
inline constexpr int kWanIndex = 3;
inline constexpr int kIfbIndex = 7;
inline constexpr int kImqIndex = 9;

/// A kernel that keeps a list of its requests and knows as much of links and root qdiscs as they
/// tell it; classifiers and classes it lists as a test has set them up. Nothing reaches the real
/// one: libnl hands its messages over and reads the answers here. Every request is accepted unless
/// a test wants it refused.
class RecordingKernel {
 public:
  using Listener = std::function<void(const std::string& summary, const std::string& request)>;

  /// `protocol` is the netlink family of the session. Also pins the packet scheduler's clock to
  /// ticks of 64 ns.
  explicit RecordingKernel(int protocol = NETLINK_ROUTE);
  ~RecordingKernel();
  RecordingKernel(const RecordingKernel&) = delete;
  RecordingKernel& operator=(const RecordingKernel&) = delete;

  quenby::SocketPtr& socket() { return socket_; }
  /// A link cache of what the kernel has now. Its requests are not recorded.
  quenby::CachePtr links();

  /// Takes over a device, or a root qdisc of one, that stands there before the test.
  void has_link(const std::string& name, int ifindex) { links_[name] = ifindex; }
  void has_root_qdisc(int ifindex, std::uint32_t handle) { roots_[ifindex] = handle; }
  void has_ingress_qdisc(int ifindex) { ingress_.insert(ifindex); }
  void has_no_links() { links_.clear(); }
  /// Takes over a classifier, class or connection, which is listed from then on whatever is
  /// requested.
  void has_filter(const ListedFilter& filter) { filters_.push_back(filter); }
  void has_redirection(const ListedRedirection& listed) { redirections_.push_back(listed); }
  void has_class(const ListedClass& listed) { classes_.push_back(listed); }
  /// A qdisc under a class, with the counters of one.
  void has_leaf(const ListedClass& listed) { leaves_.push_back(listed); }
  void has_connection(const ListedConnection& listed) { connections_.push_back(listed); }
  void has_ip6_connection(const ListedIp6Connection& listed) { ip6_connections_.push_back(listed); }
  /// Answers the next request of message type `type` with the error number `error`; calls add up
  /// and 0 lets one pass.
  void refuse(int type, int error) { refusals_[type].push_back(error); }
  /// Takes no message any more, as a kernel without memory does.
  void fail_to_send() { fails_to_send_ = true; }
  /// From now on hands each request over when it is made: in one line, and decoded in full.
  void tell(const Listener& listener) { listener_ = listener; }
  /// Acknowledges new links without making them.
  void forget_new_links() { forgets_links_ = true; }

  /// The requests since the last call: decoded in full, in one line each, or in one line and, below
  /// it, the values.
  std::string requests();
  std::string summaries();
  std::string values();

 private:
  static int on_send(nl_sock* sock, nl_msg* msg);
  static int on_receive(nl_sock* sock, sockaddr_nl* from, unsigned char** data, ucred** creds);

  void handle(const nlmsghdr& request);
  int refusal_of(const nlmsghdr& request);
  /// Whether the qdisc that a request asks for stands.
  bool has_qdisc(const tcmsg& header) const;
  /// The same for a class.
  bool has_class(const tcmsg& header) const;
  void apply(const nlmsghdr& request);
  void apply_to_qdiscs(const nlmsghdr& request);
  void answer_status(const nlmsghdr& request, int error);
  void answer_dump(const nlmsghdr& request);
  void answer_device_dump(const nlmsghdr& request, const tcmsg& header);
  void answer_class_query(const nlmsghdr& request, const tcmsg& header);
  void queue(const nlmsghdr& request, quenby::MsgPtr reply);

  int protocol_;
  quenby::SocketPtr socket_;
  std::map<std::string, int> links_;
  std::map<int, std::uint32_t> roots_;
  std::set<int> ingress_;
  std::vector<ListedFilter> filters_;
  std::vector<ListedRedirection> redirections_;
  std::vector<ListedClass> classes_;
  std::vector<ListedClass> leaves_;
  std::vector<ListedConnection> connections_;
  std::vector<ListedIp6Connection> ip6_connections_;
  std::map<int, std::deque<int>> refusals_;
  Listener listener_ = [](const std::string&, const std::string&) {};
  bool forgets_links_ = false;
  bool fails_to_send_ = false;
  std::string requests_;
  std::string summaries_;
  std::string values_;
  std::deque<std::string> replies_;
};

}  // namespace golden
