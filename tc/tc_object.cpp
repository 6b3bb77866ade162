#include "tc/tc_object.h"

#include <linux/pkt_sched.h>
#include <linux/rtnetlink.h>
#include <netlink/msg.h>

#include <algorithm>
#include <cmath>

#include "tc/attributes.h"

namespace quenby {
namespace {

// The scheduler's clock: ticks of 64 ns.
constexpr double kTicksPerSecond = 15'625'000.0;

struct Message {
  TcObject object;
  nlattr* options = nullptr;
};

std::optional<Message> read(const nlmsghdr* header, int type) {
  nlattr* members[TCA_MAX + 1];
  auto* const message = const_cast<nlmsghdr*>(header);
  if (message->nlmsg_type != type ||
      nlmsg_parse(message, sizeof(tcmsg), members, TCA_MAX, nullptr) < 0 ||
      members[TCA_KIND] == nullptr)
    return std::nullopt;
  const auto& tcm = *static_cast<const tcmsg*>(nlmsg_data(message));
  Message read;
  read.object.kind = nla_get_string(members[TCA_KIND]);
  read.object.handle = tcm.tcm_handle;
  read.object.parent = tcm.tcm_parent;
  read.object.ifindex = tcm.tcm_ifindex;
  read.options = members[TCA_OPTIONS];
  return read;
}

void add(TcObject& object, const char* name, std::uint64_t value) {
  object.properties.push_back({name, value, value, ""});
}

// Properties of a rate; `wide` is its attribute of 64 bits, where it needs one.
void add_rate(TcObject& object, const char* name, const tc_ratespec& spec, nlattr* wide) {
  const std::uint64_t rate = value<std::uint64_t>(wide).value_or(spec.rate);
  object.properties.push_back({name, rate, rate, "bytes/s"});
}

void add_burst(TcObject& object, const char* name, std::uint32_t ticks, std::uint32_t rate) {
  const double bytes = ticks / kTicksPerSecond * rate;
  object.properties.push_back(
      {name, ticks, static_cast<std::uint64_t>(std::llround(bytes)), "bytes"});
}

// One that is not named is Ethernet.
std::uint64_t link_layer(const tc_ratespec& spec) {
  const unsigned layer = spec.linklayer & TC_LINKLAYER_MASK;
  return std::max<unsigned>(layer, TC_LINKLAYER_ETHERNET);
}

void read_htb_class(nlattr* attribute, TcObject& object) {
  const Nest<TCA_HTB_MAX> options(attribute);
  const auto parameters = value<tc_htb_opt>(options[TCA_HTB_PARMS]);
  if (!parameters) return;
  add_rate(object, "rate", parameters->rate, options[TCA_HTB_RATE64]);
  add_rate(object, "ceil", parameters->ceil, options[TCA_HTB_CEIL64]);
  add_burst(object, "burst", parameters->buffer, parameters->rate.rate);
  add_burst(object, "cburst", parameters->cbuffer, parameters->ceil.rate);
  add(object, "overhead", parameters->rate.overhead);
  add(object, "mpu", parameters->rate.mpu);
  add(object, "linklayer", link_layer(parameters->rate));
  // A class with children takes no turns of its own, and the kernel keeps what it had before.
  if (parameters->level != 0) return;
  object.properties.push_back({"quantum", parameters->quantum, parameters->quantum, "bytes"});
  add(object, "prio", parameters->prio);
}

void read_fq_codel(nlattr* attribute, TcObject& object) {
  const Nest<TCA_FQ_CODEL_MAX> options(attribute);
  const auto number = [&](const char* name, int member) {
    const auto found = value<std::uint32_t>(options[static_cast<std::size_t>(member)]);
    if (found) add(object, name, *found);
  };
  number("limit", TCA_FQ_CODEL_LIMIT);
  number("quantum", TCA_FQ_CODEL_QUANTUM);
  number("ecn", TCA_FQ_CODEL_ECN);
}

void read_options(nlattr* attribute, TcObject& object) {
  if (object.kind == "htb") {
    const auto init = value<tc_htb_glob>(Nest<TCA_HTB_MAX>(attribute)[TCA_HTB_INIT]);
    if (init) add(object, "default", init->defcls);
  } else if (object.kind == "fq_codel") {
    read_fq_codel(attribute, object);
  } else if (object.kind == "pfifo") {
    const auto limit = value<tc_fifo_qopt>(attribute);
    if (limit) add(object, "limit", limit->limit);
  } else if (object.kind == "sfq") {
    const auto limit = value<tc_sfq_qopt>(attribute);
    if (limit && limit->limit != 0) add(object, "limit", limit->limit);
  }
}

const Property* find(const TcObject& object, const char* name) {
  for (const Property& property : object.properties) {
    if (std::strcmp(property.name, name) == 0) return &property;
  }
  return nullptr;
}

std::string text(std::uint64_t number, const char* unit) {
  const std::string words = std::to_string(number);
  return *unit == '\0' ? words : words + ' ' + unit;
}

}  // namespace

std::optional<TcObject> read_qdisc(const nlmsghdr* message) {
  auto found = read(message, RTM_NEWQDISC);
  if (!found) return std::nullopt;
  read_options(found->options, found->object);
  return std::move(found->object);
}

std::optional<TcObject> read_class(const nlmsghdr* message) {
  auto found = read(message, RTM_NEWTCLASS);
  if (!found || found->object.kind != "htb") return std::nullopt;
  read_htb_class(found->options, found->object);
  return std::move(found->object);
}

std::string differing(const TcObject& wanted, const TcObject& standing) {
  std::string list;
  for (const Property& property : wanted.properties) {
    const Property* const other = find(standing, property.name);
    if (other == nullptr || other->value == property.value || other->shown == property.shown)
      continue;
    if (!list.empty()) list += ", ";
    list += property.name + (' ' + text(other->shown, property.unit)) + ", not " +
            text(property.shown, property.unit);
  }
  return list;
}

}  // namespace quenby
