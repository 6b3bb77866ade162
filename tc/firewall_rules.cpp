#include "tc/firewall_rules.h"

#include <algorithm>

#include "cli/system.h"
#include "tc/handles.h"

namespace quenby {
namespace {

const std::string kMarkOut = kMarkOutChain;
const std::string kMarkIn = kMarkInChain;
const std::string kDrop = kDropChain;
const std::string kForwardOut = kForwardOutChain;
const std::string kForwardIn = kForwardInChain;
const std::string kTracking = kTrackingChain;

const std::string kQuiet = ">/dev/null 2>&1";

std::string iptables(Family family) {
  return family == Family::ipv6 ? "sudo ip6tables -t " : "sudo iptables -t ";
}

std::string filter_append(Family family) { return iptables(family) + "filter -A " + kDrop; }
std::string marking(Family family) { return iptables(family) + "mangle -A " + kMarkOut; }
std::string first_tracking(Family family) {
  return iptables(family) + "raw -R " + kTracking + " 1";
}
std::string track_all(Family family) { return first_tracking(family) + " -j ACCEPT"; }

std::string mask() { return "0x" + hex(kMarkMask); }

std::string restore_mark() {
  return " -j CONNMARK --restore-mark --nfmask " + mask() + " --ctmask " + mask();
}

std::string jump_from(const std::string& hook, Family family) {
  return iptables(family) + "filter -I " + hook + " 1 -j " + kDrop + ";";
}

// Drops what belongs to no tariff. `device` names the direction and the device, as in " -o eth1".
std::string drop_default(const std::string& device, std::uint32_t default_mark, Family family) {
  return filter_append(family) + device + restore_mark() + ";" + filter_append(family) + device +
         " -m mark --mark 0x" + hex(default_mark) + "/" + mask() + " -j DROP;";
}

// Drops everything but the router's own neighbour and router discovery, without which the other
// direction would not work either. Nothing that was forwarded has its hop limit.
std::string drop_all(const std::string& device, Family family) {
  const std::string append = filter_append(family) + device;
  const std::string discovery =
      family == Family::ipv6 ? append + " -p ipv6-icmp -m hl --hl-eq 255 -j RETURN;" : "";
  return discovery + append + " -j DROP";
}

// A packet that carries no bits of ours yet gets those of its connection or, failing that, of its
// source address, and the connection keeps them.
std::string marking_rules(const std::string& wan, std::uint32_t default_mark, Family family) {
  const std::string append = marking(family);
  return append + " ! -o " + wan + " -j RETURN;" +                   //
         append + " -m addrtype --src-type=LOCAL -j RETURN;" +       //
         append + restore_mark() + ";" +                             //
         append + " -m mark ! --mark 0/" + mask() + " -j RETURN;" +  //
         append + " -j MARK --set-xmark 0x" + hex(default_mark) + "/" + mask() + ";" + append +
         " -j SET --map-set " + address_set_name(family) + " src --map-mark;" +  //
         append + " -j CONNMARK --save-mark --nfmask " + mask() + " --ctmask " + mask();
}

}  // namespace

void append_commands(std::string& list, const std::string& commands) {
  if (!list.empty() && !commands.empty()) list += ";";
  list += commands;
}

const char* address_set_name(Family family) {
  return family == Family::ipv6 ? kAddressSet6 : kAddressSet;
}

std::string clean_rules(Family family) {
  const std::string start = iptables(family);
  return start + "mangle -F " + kMarkOut + ";" +                               //
         start + "mangle -F " + kMarkIn + ";" +                                //
         start + "filter -D " + kForwardOut + " -j " + kDrop + kQuiet + ";" +  //
         start + "filter -D " + kForwardIn + " -j " + kDrop + kQuiet + " || true";
}

std::string upload_rules(const ResolvedLine& line, std::uint32_t default_mark, Family family) {
  const std::string wan = shell_word(line.wan);
  const std::string device = " -o " + wan;
  const std::string jump = jump_from(kForwardOut, family);
  if (line.blocked()) return jump + drop_all(device, family);
  std::string rules;
  if (line.default_blocked()) rules = jump + drop_default(device, default_mark, family);
  return rules + marking_rules(wan, default_mark, family);
}

std::string download_rules(const ResolvedLine& line, std::uint32_t default_mark, bool wan_found,
                           Family family) {
  const std::string device = " -i " + shell_word(line.wan);
  const std::string jump = jump_from(kForwardIn, family);
  if (line.blocked()) return jump + drop_all(device, family) + ";" + tracking_as_before(family);
  if (line.default_blocked())
    return jump + drop_default(device, default_mark, family) + track_all(family);
  return wan_found ? track_all(family) : tracking_as_before(family);
}

std::string imq_upload_rules() {
  const std::string append = marking(Family::ipv4);
  return append + " -m addrtype --src-type=LOCAL -j RETURN;" + append + " -j IMQ --todev 0;" +
         tracking_as_before();
}

std::string imq_download_rules(const std::string& wan) {
  return iptables(Family::ipv4) + "mangle -A " + kMarkIn + " -i " + shell_word(wan) +
         " -j IMQ --todev 0";
}

bool needs_drop_chain(const ResolvedSettings& settings) {
  return std::any_of(kDirections.begin(), kDirections.end(), [&settings](Direction way) {
    const ResolvedLine& line = settings.direction(way).line;
    return line.blocked() || line.default_blocked();
  });
}

std::string drop_chain_commands(Family family) {
  return iptables(family) + "filter -F " + kDrop + kQuiet + " || " +  //
         iptables(family) + "filter -N " + kDrop + kQuiet;
}

std::string clean_list(Family family, bool drop_chain) {
  std::string commands = clean_rules(family);
  if (drop_chain) append_commands(commands, drop_chain_commands(family));
  return commands;
}

std::string firewall_start_command() { return "sudo /opt/ostrea/sbin/firewall.init start opt-qos"; }

std::string tracking_as_before(Family family) { return first_tracking(family) + " -j RETURN"; }

std::string firewall_end_commands(Family family) {
  return iptables(family) + "filter -F " + kDrop + kQuiet + ";" + tracking_as_before(family);
}

std::string ip6_begin_list(bool drop_chain) {
  std::string commands = firewall_start_command();
  append_commands(commands, clean_list(Family::ipv6, drop_chain));
  return commands;
}

std::string ip6_end_list() {
  std::string commands = clean_rules(Family::ipv6);
  append_commands(commands, firewall_end_commands(Family::ipv6));
  return commands;
}

}  // namespace quenby
