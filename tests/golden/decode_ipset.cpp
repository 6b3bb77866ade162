#include <arpa/inet.h>
#include <linux/netfilter/ipset/ip_set.h>
#include <linux/netfilter/nfnetlink.h>

#include <map>

#include "tests/golden/decode.h"

// Requests about IP sets. Every value is shown as it is on the wire.
namespace golden {
namespace {

using Names = std::map<int, std::string>;

const Names& top_names() {
  static const Names names = {{IPSET_ATTR_PROTOCOL, "PROTOCOL"}, {IPSET_ATTR_SETNAME, "SETNAME"},
                              {IPSET_ATTR_TYPENAME, "TYPENAME"}, {IPSET_ATTR_REVISION, "REVISION"},
                              {IPSET_ATTR_FAMILY, "FAMILY"},     {IPSET_ATTR_FLAGS, "FLAGS"},
                              {IPSET_ATTR_DATA, "DATA"}};
  return names;
}

const Names& data_names() {
  static const Names names = {{IPSET_ATTR_IP, "IP"},
                              {IPSET_ATTR_CIDR, "CIDR"},
                              {IPSET_ATTR_CADT_FLAGS, "CADT_FLAGS"},
                              {IPSET_ATTR_CADT_LINENO, "LINENO"},
                              {IPSET_ATTR_SKBMARK, "SKBMARK"}};
  return names;
}

const Names& address_names() {
  static const Names names = {{IPSET_ATTR_IPADDR_IPV4, "IPADDR_IPV4"},
                              {IPSET_ATTR_IPADDR_IPV6, "IPADDR_IPV6"}};
  return names;
}

std::string command_name(int command) {
  static const Names names = {
      {IPSET_CMD_CREATE, "IPSET_CMD_CREATE"}, {IPSET_CMD_DESTROY, "IPSET_CMD_DESTROY"},
      {IPSET_CMD_FLUSH, "IPSET_CMD_FLUSH"},   {IPSET_CMD_ADD, "IPSET_CMD_ADD"},
      {IPSET_CMD_DEL, "IPSET_CMD_DEL"},       {IPSET_CMD_TEST, "IPSET_CMD_TEST"},
      {IPSET_CMD_LIST, "IPSET_CMD_LIST"}};
  const auto name = names.find(command);
  return name == names.end() ? "ipset command " + std::to_string(command) : name->second;
}

std::string value_text(const Names& names, const Attribute& a) {
  const bool is_text =
      &names == &top_names() && (a.number == IPSET_ATTR_SETNAME || a.number == IPSET_ATTR_TYPENAME);
  return is_text ? quoted(a.payload) : bytes(a.payload);
}

void decode_level(std::string_view stream, const Names& names, const Text& text);

void decode_nest(const Names& names, const Attribute& a, const Text& text) {
  decode_level(a.payload, &names == &top_names() ? data_names() : address_names(), text);
}

void decode_level(std::string_view stream, const Names& names, const Text& text) {
  for (const Attribute& a : attributes_in_order(stream)) {
    const auto known = names.find(a.number);
    std::string line = known == names.end() ? "attribute" : known->second;
    line += "(" + std::to_string(a.number) + ")";
    if (a.nested) line += " NESTED";
    if (a.net_order) line += " NET_BYTEORDER";
    if (!a.nested) line += " " + value_text(names, a);
    text.line(line);
    if (a.nested) decode_nest(names, a, text.deeper());
  }
}

}  // namespace

void decode_ipset(const nlmsghdr& message, const Text& text) {
  const auto header = header_of<nfgenmsg>(message);
  const Request request =
      NFNL_MSG_TYPE(message.nlmsg_type) == IPSET_CMD_LIST ? Request::get : Request::make;
  text.line(summarize_ipset(message) + " " + flag_names(message.nlmsg_flags, request, "|"));
  const Text fields = text.deeper();
  fields.line("family " + std::to_string(header.nfgen_family) + " version " +
              std::to_string(header.version) + " resource " + std::to_string(ntohs(header.res_id)));
  decode_level(attribute_stream(message, sizeof(nfgenmsg)), top_names(), fields);
}

std::string summarize_ipset(const nlmsghdr& message) {
  if (NFNL_SUBSYS_ID(message.nlmsg_type) != NFNL_SUBSYS_IPSET)
    return "subsystem " + std::to_string(NFNL_SUBSYS_ID(message.nlmsg_type));
  return command_name(NFNL_MSG_TYPE(message.nlmsg_type));
}

}  // namespace golden
