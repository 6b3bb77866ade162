#include <linux/netfilter/nfnetlink.h>
#include <linux/netfilter/nfnetlink_conntrack.h>

#include <map>

#include "tests/golden/decode.h"

// Requests about connections. Every value is shown as it is on the wire.
namespace golden {
namespace {

using Names = std::map<int, std::string>;

std::string name_in(const Names& names, int number, const std::string& kind) {
  const auto name = names.find(number);
  return name == names.end() ? kind + " " + std::to_string(number) : name->second;
}

std::string attribute_name(int number) {
  static const Names names = {{CTA_TUPLE_ORIG, "TUPLE_ORIG"},
                              {CTA_ZONE, "ZONE"},
                              {CTA_MARK, "MARK"},
                              {CTA_MARK_MASK, "MARK_MASK"}};
  return name_in(names, number, "attribute") + "(" + std::to_string(number) + ")";
}

bool is_dump(const nlmsghdr& message) {
  return NFNL_MSG_TYPE(message.nlmsg_type) == IPCTNL_MSG_CT_GET;
}

}  // namespace

bool is_conntrack(int type) { return NFNL_SUBSYS_ID(type) == NFNL_SUBSYS_CTNETLINK; }

void decode_conntrack(const nlmsghdr& message, const Text& text) {
  const auto header = header_of<nfgenmsg>(message);
  const Request request = is_dump(message) ? Request::get : Request::make;
  text.line(summarize_conntrack(message) + " " + flag_names(message.nlmsg_flags, request, "|"));
  const Text fields = text.deeper();
  fields.line("family " + std::to_string(header.nfgen_family));
  for (const Attribute& a : attributes_in_order(attribute_stream(message, sizeof(nfgenmsg))))
    fields.line(attribute_name(a.number) + (a.nested ? " NESTED " : " ") + bytes(a.payload));
}

std::string summarize_conntrack(const nlmsghdr& message) {
  static const Names names = {{IPCTNL_MSG_CT_NEW, "IPCTNL_MSG_CT_NEW"},
                              {IPCTNL_MSG_CT_GET, "IPCTNL_MSG_CT_GET"}};
  return name_in(names, NFNL_MSG_TYPE(message.nlmsg_type), "ctnetlink command");
}

}  // namespace golden
