#include <linux/if.h>
#include <linux/rtnetlink.h>

#include <map>

#include "tests/golden/decode.h"

// Requests about links.
namespace golden {
namespace {

struct Type {
  std::string name;
  Request request;
};

Type type_of(int type) {
  switch (type) {
    case RTM_NEWLINK:
      return {"RTM_NEWLINK", Request::make};
    case RTM_DELLINK:
      return {"RTM_DELLINK", Request::remove};
    case RTM_GETLINK:
      return {"RTM_GETLINK", Request::get};
    default:
      return {"message " + std::to_string(type), Request::remove};
  }
}

std::string interface_flags(unsigned flags) {
  if (flags == 0) return "none";
  return flags == IFF_UP ? "UP" : "0x" + hex(flags);
}

void decode_kind(std::string_view payload, const Text& text) {
  for (const Attribute& a : attributes_by_number(payload)) {
    if (a.number == IFLA_INFO_KIND) {
      text.line("IFLA_INFO_KIND " + quoted(a.payload));
    } else {
      unknown(text, a);
    }
  }
}

void decode_attribute(const Attribute& a, const Text& text) {
  static const std::map<int, std::string> words = {
      {IFLA_MTU, "IFLA_MTU"}, {IFLA_TXQLEN, "IFLA_TXQLEN"}, {IFLA_EXT_MASK, "IFLA_EXT_MASK"}};
  if (a.number == IFLA_IFNAME) {
    text.line("IFLA_IFNAME " + quoted(a.payload));
  } else if (a.number == IFLA_LINKINFO) {
    text.line("IFLA_LINKINFO");
    decode_kind(a.payload, text.deeper());
  } else if (words.count(a.number) != 0) {
    text.line(words.at(a.number) + " " + std::to_string(value_of<std::uint32_t>(a.payload)));
  } else {
    unknown(text, a);
  }
}

}  // namespace

void decode_link(const nlmsghdr& message, const Text& text) {
  const Type type = type_of(message.nlmsg_type);
  text.line(type.name + " " + flag_names(message.nlmsg_flags, type.request, "|"));
  // What a listing asks for besides its type is libnl's choice.
  if (type.request == Request::get) return;
  const auto header = header_of<ifinfomsg>(message);
  const Text fields = text.deeper();
  fields.line("family " + std::to_string(header.ifi_family) + " ifindex " +
              std::to_string(header.ifi_index));
  fields.line("flags " + interface_flags(header.ifi_flags) + " change " +
              interface_flags(header.ifi_change));
  for (const Attribute& a : attributes_by_number(attribute_stream(message, sizeof(ifinfomsg))))
    decode_attribute(a, fields);
}

std::string summarize_link(const nlmsghdr& message) {
  const Type type = type_of(message.nlmsg_type);
  const unsigned flags = message.nlmsg_flags & ~unsigned{NLM_F_REQUEST | NLM_F_ACK};
  std::string line = type.name;
  if (flags != 0) line += " " + flag_names(flags, type.request, "|");
  for (const Attribute& a : attributes_in_order(attribute_stream(message, sizeof(ifinfomsg)))) {
    if (a.number == IFLA_IFNAME) line += " " + quoted(a.payload);
  }
  return line;
}

}  // namespace golden
