#include "tc/mark_filter.h"

#include <linux/pkt_cls.h>
#include <linux/rtnetlink.h>
#include <netlink/attr.h>

#include <netinet/in.h>

#include "tc/handles.h"

namespace quenby {
namespace {

constexpr std::uint32_t kMarkOffset = static_cast<std::uint32_t>(SKF_AD_OFF) + SKF_AD_MARK;

// Adds the classifier's own attributes; false when the message is full.
bool put_program(nl_msg* msg) {
  const auto program = mark_program();
  nlattr* const options = nla_nest_start(msg, TCA_OPTIONS);
  if (options == nullptr ||
      nla_put_u16(msg, TCA_BPF_OPS_LEN, static_cast<std::uint16_t>(program.size())) < 0 ||
      nla_put(msg, TCA_BPF_OPS, sizeof(program), program.data()) < 0)
    return false;
  nla_nest_end(msg, options);
  return true;
}

}  // namespace

std::array<sock_filter, 5> mark_program() {
  return {{
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, kMarkOffset),
      BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, kMarkFlag, 0, 2),
      BPF_STMT(BPF_ALU | BPF_AND | BPF_K, kMarkMask),
      BPF_STMT(BPF_RET | BPF_A, 0),
      BPF_STMT(BPF_RET | BPF_K, 0),
  }};
}

MsgPtr mark_program_request(int ifindex, std::uint16_t prio, std::uint16_t protocol) {
  MsgPtr msg(nlmsg_alloc_simple(RTM_NEWTFILTER, NLM_F_CREATE));
  if (msg == nullptr) return nullptr;
  tcmsg header{};
  header.tcm_family = AF_UNSPEC;
  header.tcm_ifindex = ifindex;
  header.tcm_parent = kHtbHandle;
  header.tcm_info = TC_H_MAKE(static_cast<std::uint32_t>(prio) << 16, htons(protocol));
  if (nlmsg_append(msg.get(), &header, sizeof(header), NLMSG_ALIGNTO) < 0 ||
      nla_put_string(msg.get(), TCA_KIND, "bpf") < 0 || !put_program(msg.get()))
    return nullptr;
  return msg;
}

}  // namespace quenby
