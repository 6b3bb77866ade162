#include "tests/golden/recording_kernel.h"

#include <linux/rtnetlink.h>
#include <netlink/attr.h>
#include <netlink/errno.h>
#include <netlink/handlers.h>
#include <netlink/utils.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <unistd.h>
#include <utility>

#include "tests/golden/decode.h"
#include "tests/golden/replies.h"

namespace golden {
namespace {

using quenby::MsgPtr;

// libnl's callbacks know the socket only.
std::map<nl_sock*, RecordingKernel*>& kernels() {
  static std::map<nl_sock*, RecordingKernel*> all;
  return all;
}

// 1000 ns per microsecond, 64 ns per tick. The library reads the file once.
void pin_clock() {
  const std::string path = "/tmp/golden_psched." + std::to_string(getpid());
  std::ofstream(path) << "000003e8 00000040 000f4240 3b9aca00\n";
  setenv("PROC_NET_PSCHED", path.c_str(), 1);
  const bool pinned = nl_us2ticks(64) == 1000;
  unlink(path.c_str());
  if (!pinned) throw std::runtime_error("the scheduler clock was read before the test");
}

std::string name_of(const nlmsghdr& request) {
  for (const Attribute& a : attributes_in_order(attribute_stream(request, sizeof(ifinfomsg)))) {
    if (a.number == IFLA_IFNAME) return std::string(a.payload.substr(0, a.payload.find('\0')));
  }
  return {};
}

bool is_dump(const nlmsghdr& request) { return (request.nlmsg_flags & NLM_F_DUMP) == NLM_F_DUMP; }

int index_of_new(const std::string& name) { return name == "imq0" ? kImqIndex : kIfbIndex; }

}  // namespace

RecordingKernel::RecordingKernel(int protocol)
    : protocol_(protocol), socket_(nl_socket_alloc(), quenby::close_nl_socket) {
  static const bool pinned = (pin_clock(), true);
  if (!pinned || socket_ == nullptr || nl_connect(socket_.get(), protocol) < 0)
    throw std::runtime_error("no netlink socket");
  nl_cb* const callbacks = nl_socket_get_cb(socket_.get());
  nl_cb_overwrite_send(callbacks, on_send);
  nl_cb_overwrite_recv(callbacks, on_receive);
  nl_cb_put(callbacks);
  kernels()[socket_.get()] = this;
}

RecordingKernel::~RecordingKernel() {
  std::erase_if(kernels(), [this](const auto& entry) { return entry.second == this; });
}

quenby::CachePtr RecordingKernel::links() {
  const std::string requests = requests_;
  const std::string summaries = summaries_;
  const std::string values = values_;
  nl_cache* cache = nullptr;
  if (rtnl_link_alloc_cache(socket_.get(), AF_UNSPEC, &cache) < 0)
    throw std::runtime_error("no link cache");
  requests_ = requests;
  summaries_ = summaries;
  values_ = values;
  return {cache, nl_cache_free};
}

std::string RecordingKernel::requests() {
  summaries_.clear();
  values_.clear();
  return std::exchange(requests_, "");
}

std::string RecordingKernel::summaries() {
  requests_.clear();
  values_.clear();
  return std::exchange(summaries_, "");
}

std::string RecordingKernel::values() {
  requests_.clear();
  summaries_.clear();
  return std::exchange(values_, "");
}

int RecordingKernel::on_send(nl_sock* sock, nl_msg* msg) {
  const nlmsghdr& request = *nlmsg_hdr(msg);
  RecordingKernel& kernel = *kernels().at(sock);
  if (kernel.fails_to_send_) return -NLE_NOMEM;
  kernel.handle(request);
  return static_cast<int>(request.nlmsg_len);
}

int RecordingKernel::on_receive(nl_sock* sock, sockaddr_nl* from, unsigned char** data,
                                ucred** /*creds*/) {
  std::deque<std::string>& replies = kernels().at(sock)->replies_;
  if (replies.empty()) return -NLE_AGAIN;
  const std::string reply = std::move(replies.front());
  replies.pop_front();
  *from = {};
  from->nl_family = AF_NETLINK;
  // The library frees the buffer.
  *data = static_cast<unsigned char*>(std::malloc(reply.size()));
  std::memcpy(*data, reply.data(), reply.size());
  return static_cast<int>(reply.size());
}

void RecordingKernel::handle(const nlmsghdr& request) {
  requests_ += decode(request, protocol_);
  summaries_ += summary(request, protocol_) + "\n";
  values_ += golden::values(request, protocol_) + "\n";
  listener_(summary(request, protocol_), decode(request, protocol_));
  const int error = refusal_of(request);
  if (error == 0) apply(request);
  if (error == 0 && is_dump(request)) {
    answer_dump(request);
  } else {
    if (error == 0 && request.nlmsg_type == RTM_GETTCLASS && protocol_ == NETLINK_ROUTE)
      answer_class_query(request, header_of<tcmsg>(request));
    answer_status(request, error);
  }
}

int RecordingKernel::refusal_of(const nlmsghdr& request) {
  std::deque<int>& errors = refusals_[request.nlmsg_type];
  if (errors.empty()) {
    if (protocol_ != NETLINK_ROUTE || is_dump(request)) return 0;
    if (request.nlmsg_type == RTM_GETQDISC && !has_qdisc(header_of<tcmsg>(request))) return EINVAL;
    if (request.nlmsg_type == RTM_GETTCLASS && !has_class(header_of<tcmsg>(request))) return ENOENT;
    return 0;
  }
  const int error = errors.front();
  errors.pop_front();
  return error;
}

bool RecordingKernel::has_qdisc(const tcmsg& header) const {
  if (header.tcm_parent == TC_H_INGRESS) return ingress_.count(header.tcm_ifindex) != 0;
  const auto root = roots_.find(header.tcm_ifindex);
  return root != roots_.end() && root->second == header.tcm_handle;
}

bool RecordingKernel::has_class(const tcmsg& header) const {
  return std::any_of(classes_.begin(), classes_.end(), [&header](const ListedClass& listed) {
    return listed.ifindex == header.tcm_ifindex && listed.handle == header.tcm_handle;
  });
}

void RecordingKernel::apply(const nlmsghdr& request) {
  if (protocol_ != NETLINK_ROUTE) return;
  if (request.nlmsg_type == RTM_NEWLINK && !forgets_links_)
    links_[name_of(request)] = index_of_new(name_of(request));
  if (request.nlmsg_type == RTM_DELLINK) links_.erase(name_of(request));
  if (request.nlmsg_type == RTM_NEWQDISC || request.nlmsg_type == RTM_DELQDISC)
    apply_to_qdiscs(request);
}

void RecordingKernel::apply_to_qdiscs(const nlmsghdr& request) {
  const auto header = header_of<tcmsg>(request);
  const bool made = request.nlmsg_type == RTM_NEWQDISC;
  if (header.tcm_parent == TC_H_ROOT) roots_[header.tcm_ifindex] = made ? header.tcm_handle : 0;
  if (header.tcm_parent != TC_H_INGRESS) return;
  if (made) {
    ingress_.insert(header.tcm_ifindex);
  } else {
    ingress_.erase(header.tcm_ifindex);
  }
}

void RecordingKernel::answer_status(const nlmsghdr& request, int error) {
  MsgPtr reply(nlmsg_alloc_simple(NLMSG_ERROR, 0));
  nlmsgerr status{};
  status.error = -error;
  status.msg = request;
  nlmsg_append(reply.get(), &status, sizeof(status), NLMSG_ALIGNTO);
  queue(request, std::move(reply));
}

void RecordingKernel::answer_dump(const nlmsghdr& request) {
  if (protocol_ == NETLINK_NETFILTER) {
    const bool ip6 = header_of<nfgenmsg>(request).nfgen_family == AF_INET6;
    const auto answer = [&](const auto& list) {
      for (const auto& listed : list) queue(request, connection_message(listed));
    };
    ip6 ? answer(ip6_connections_) : answer(connections_);
  } else if (request.nlmsg_type == RTM_GETLINK) {
    for (const auto& [name, ifindex] : links_) queue(request, link_message(name, ifindex));
  } else if (request.nlmsg_type == RTM_GETQDISC) {
    for (const auto& [ifindex, handle] : roots_) queue(request, root_message(ifindex, handle));
    for (const ListedClass& listed : leaves_) queue(request, leaf_message(listed));
  } else {
    answer_device_dump(request, header_of<tcmsg>(request));
  }
  queue(request, done_message());
}

void RecordingKernel::answer_device_dump(const nlmsghdr& request, const tcmsg& header) {
  const bool filters = request.nlmsg_type == RTM_GETTFILTER;
  for (const ListedFilter& filter : filters_) {
    if (filters && filter.ifindex == header.tcm_ifindex && filter.parent == header.tcm_parent)
      queue(request, filter_message(filter));
  }
  for (const ListedRedirection& listed : redirections_) {
    if (filters && listed.ifindex == header.tcm_ifindex && header.tcm_parent == kIngress)
      queue(request, redirection_message(listed));
  }
  for (const ListedClass& listed : classes_) {
    if (request.nlmsg_type == RTM_GETTCLASS && listed.ifindex == header.tcm_ifindex)
      queue(request, class_message(listed));
  }
}

// Its asker is told only when that is wanted.
void RecordingKernel::answer_class_query(const nlmsghdr& request, const tcmsg& header) {
  if ((request.nlmsg_flags & NLM_F_ECHO) == 0) return;
  for (const ListedClass& listed : classes_) {
    if (listed.ifindex != header.tcm_ifindex || listed.handle != header.tcm_handle) continue;
    MsgPtr answer = class_message(listed);
    // It is no part of a list.
    nlmsg_hdr(answer.get())->nlmsg_flags &= static_cast<std::uint16_t>(~NLM_F_MULTI);
    queue(request, std::move(answer));
  }
}

void RecordingKernel::queue(const nlmsghdr& request, MsgPtr reply) {
  nlmsghdr* const header = nlmsg_hdr(reply.get());
  header->nlmsg_seq = request.nlmsg_seq;
  header->nlmsg_pid = request.nlmsg_pid;
  replies_.emplace_back(reinterpret_cast<const char*>(header), header->nlmsg_len);
}

}  // namespace golden
