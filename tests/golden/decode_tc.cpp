#include <arpa/inet.h>
#include <linux/pkt_sched.h>
#include <linux/rtnetlink.h>

#include <map>

#include "tests/golden/decode.h"

// Requests about qdiscs, classes and classifiers.
namespace golden {
namespace {

struct Type {
  const char* name;
  Request request;
};

const std::map<int, Type>& types() {
  static const std::map<int, Type> known = {
      {RTM_NEWQDISC, {"RTM_NEWQDISC", Request::make}},
      {RTM_DELQDISC, {"RTM_DELQDISC", Request::remove}},
      {RTM_GETQDISC, {"RTM_GETQDISC", Request::get}},
      {RTM_NEWTCLASS, {"RTM_NEWTCLASS", Request::make}},
      {RTM_DELTCLASS, {"RTM_DELTCLASS", Request::remove}},
      {RTM_GETTCLASS, {"RTM_GETTCLASS", Request::get}},
      {RTM_NEWTFILTER, {"RTM_NEWTFILTER", Request::make}},
      {RTM_DELTFILTER, {"RTM_DELTFILTER", Request::remove}},
      {RTM_GETTFILTER, {"RTM_GETTFILTER", Request::get}},
  };
  return known;
}

bool is_filter(int type) { return type >= RTM_NEWTFILTER && type <= RTM_GETTFILTER; }

std::string_view kind_of(const nlmsghdr& message) {
  for (const Attribute& a : attributes_in_order(attribute_stream(message, sizeof(tcmsg)))) {
    if (a.number == TCA_KIND) return a.payload.substr(0, a.payload.find('\0'));
  }
  return {};
}

std::string protocol_text(std::uint32_t info) {
  const auto protocol = ntohs(static_cast<std::uint16_t>(TC_H_MIN(info)));
  return protocol == 0x0800 ? "ip" : "0x" + hex(protocol);
}

// The word that holds the priority and the protocol of a classifier.
std::string info_text(const nlmsghdr& message, std::uint32_t info) {
  if (!is_filter(message.nlmsg_type)) return std::to_string(info);
  return "prio " + std::to_string(TC_H_MAJ(info) >> 16) + " protocol " + protocol_text(info);
}

std::string own_handle(const nlmsghdr& message, std::uint32_t handle) {
  if (!is_filter(message.nlmsg_type)) return handle_text(handle);
  return handle == 0 ? "none" : u32_handle_text(handle);
}

void decode_header(const nlmsghdr& message, const Text& text) {
  const auto header = header_of<tcmsg>(message);
  text.line("family " + std::to_string(header.tcm_family) + " ifindex " +
            std::to_string(header.tcm_ifindex));
  text.line("handle " + own_handle(message, header.tcm_handle));
  text.line("parent " + handle_text(header.tcm_parent));
  text.line("info " + info_text(message, header.tcm_info));
}

}  // namespace

bool is_tc(int type) { return types().count(type) != 0; }

std::string handle_text(std::uint32_t handle) {
  if (handle == TC_H_ROOT) return "root";
  if (handle == TC_H_INGRESS) return "ingress";
  if (handle == 0) return "none";
  return hex(TC_H_MAJ(handle) >> 16) + ":" + hex(TC_H_MIN(handle));
}

std::string u32_handle_text(std::uint32_t handle) {
  return "table " + std::to_string(handle >> 20) + " bucket " +
         std::to_string(handle >> 12 & 0xff) + " node " + std::to_string(handle & 0xfff);
}

void decode_tc(const nlmsghdr& message, const Text& text) {
  const Type& type = types().at(message.nlmsg_type);
  text.line(type.name + std::string(" ") + flag_names(message.nlmsg_flags, type.request, "|"));
  const Text fields = text.deeper();
  decode_header(message, fields);
  for (const Attribute& a : attributes_by_number(attribute_stream(message, sizeof(tcmsg)))) {
    if (a.number == TCA_KIND) {
      fields.line("TCA_KIND " + quoted(a.payload));
    } else if (a.number == TCA_OPTIONS) {
      fields.line("TCA_OPTIONS");
      decode_options(kind_of(message), a.payload, fields.deeper());
    } else {
      unknown(fields, a);
    }
  }
}

std::string summarize_tc(const nlmsghdr& message) {
  const Type& type = types().at(message.nlmsg_type);
  const unsigned flags = message.nlmsg_flags & ~unsigned{NLM_F_REQUEST | NLM_F_ACK};
  std::string line = type.name;
  if (flags != 0) line += " " + flag_names(flags, type.request, "|");
  if (type.request == Request::get) return line;

  const auto header = header_of<tcmsg>(message);
  line += " ifindex " + std::to_string(header.tcm_ifindex);
  if (!kind_of(message).empty()) line += " " + std::string(kind_of(message));
  if (header.tcm_handle != 0) line += " " + own_handle(message, header.tcm_handle);
  line += " parent " + handle_text(header.tcm_parent);
  if (is_filter(message.nlmsg_type)) line += " prio " + std::to_string(header.tcm_info >> 16);
  return line;
}

}  // namespace golden
