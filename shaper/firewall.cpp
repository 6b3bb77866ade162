#include "shaper/firewall.h"

#include "tc/firewall_rules.h"

namespace quenby {
bool needs_drop_chain(const GlobalSet& set) {
  return set.global.upload.speed == 0 || set.global.download.speed == 0 ||
         default_blocked(set, Direction::upload) || default_blocked(set, Direction::download);
}

std::string drop_chain_commands() {
  return "sudo iptables -t filter -F KAVO_OPT_QOS_HOOK>/dev/null 2>&1 || "
         "sudo iptables -t filter -N KAVO_OPT_QOS_HOOK>/dev/null 2>&1";
}

std::string firewall_start_command() { return "sudo /opt/ostrea/sbin/firewall.init start opt-qos"; }

std::string firewall_end_commands() {
  return "sudo iptables -t filter -F KAVO_OPT_QOS_HOOK>/dev/null 2>&1;"
         "sudo iptables -t raw -R QOS_CONNTRACK 1 -j RETURN";
}

}  // namespace quenby
