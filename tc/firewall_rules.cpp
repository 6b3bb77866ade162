#include "tc/firewall_rules.h"

#include "cli/system.h"
#include "model/rate.h"
#include "tc/handles.h"

namespace quenby {
namespace {

const std::string kIptables = "sudo iptables -t ";
// The platform's chains and, in the third line, the one that we make.
const std::string kMarkOut = "KAVO_QOS_FW_OUT_HOOK";
const std::string kMarkIn = "KAVO_QOS_FW_IN_HOOK";
const std::string kDrop = "KAVO_OPT_QOS_HOOK";
const std::string kForwardOut = "OSTREA_FW_OUT_HOOK";
const std::string kForwardIn = "OSTREA_FW_IN_HOOK";
const std::string kTracking = "QOS_CONNTRACK";

const std::string kQuiet = ">/dev/null 2>&1";
const std::string kFilterAppend = kIptables + "filter -A " + kDrop;
const std::string kMarking = kIptables + "mangle -A " + kMarkOut;
const std::string kTrackAll = kIptables + "raw -R " + kTracking + " 1 -j ACCEPT";
const std::string kTrackAsBefore = kIptables + "raw -R " + kTracking + " 1 -j RETURN";

std::string mask() { return "0x" + hex(kMarkMask); }

std::string restore_mark() {
  return " -j CONNMARK --restore-mark --nfmask " + mask() + " --ctmask " + mask();
}

std::string jump_from(const std::string& hook) {
  return kIptables + "filter -I " + hook + " 1 -j " + kDrop + ";";
}

// Drops what belongs to no tariff. `device` names the direction and the device, as in " -o eth1".
std::string drop_default(const std::string& device, std::uint32_t default_mark) {
  return kFilterAppend + device + restore_mark() + ";" + kFilterAppend + device +
         " -m mark --mark 0x" + hex(default_mark) + "/" + mask() + " -j DROP;";
}

// A packet that carries no bits of ours yet gets those of its connection or, failing that, of its
// source address, and the connection keeps them.
std::string marking_rules(const std::string& wan, std::uint32_t default_mark) {
  return kMarking + " ! -o " + wan + " -j RETURN;" +                   //
         kMarking + " -m addrtype --src-type=LOCAL -j RETURN;" +       //
         kMarking + restore_mark() + ";" +                             //
         kMarking + " -m mark ! --mark 0/" + mask() + " -j RETURN;" +  //
         kMarking + " -j MARK --set-xmark 0x" + hex(default_mark) + "/" + mask() + ";" + kMarking +
         " -j SET --map-set " + kAddressSet + " src --map-mark;" +  //
         kMarking + " -j CONNMARK --save-mark --nfmask " + mask() + " --ctmask " + mask();
}

}  // namespace

void append_commands(std::string& list, const std::string& commands) {
  if (!list.empty() && !commands.empty()) list += ";";
  list += commands;
}

bool default_blocked(const GlobalSet& set, Direction way) {
  return set.global.direction(way).speed == kNeverSet && set.has_default &&
         set.defaults.direction(way).speed == 0;
}

std::string clean_rules() {
  return kIptables + "mangle -F " + kMarkOut + ";" +                               //
         kIptables + "mangle -F " + kMarkIn + ";" +                                //
         kIptables + "filter -D " + kForwardOut + " -j " + kDrop + kQuiet + ";" +  //
         kIptables + "filter -D " + kForwardIn + " -j " + kDrop + kQuiet + " || true";
}

std::string upload_rules(const GlobalSet& set, std::uint32_t default_mark) {
  const std::string wan = shell_word(set.global.wan);
  const std::string device = " -o " + wan;
  const std::string jump = jump_from(kForwardOut);
  if (set.global.upload.speed == 0) return jump + kFilterAppend + device + " -j DROP";
  std::string rules;
  if (default_blocked(set, Direction::upload)) rules = jump + drop_default(device, default_mark);
  return rules + marking_rules(wan, default_mark);
}

std::string download_rules(const GlobalSet& set, std::uint32_t default_mark, bool wan_found) {
  const std::string device = " -i " + shell_word(set.global.wan);
  const std::string jump = jump_from(kForwardIn);
  if (set.global.download.speed == 0)
    return jump + kFilterAppend + device + " -j DROP;" + kTrackAsBefore;
  if (default_blocked(set, Direction::download))
    return jump + drop_default(device, default_mark) + kTrackAll;
  return wan_found ? kTrackAll : kTrackAsBefore;
}

std::string imq_upload_rules() {
  return kMarking + " -m addrtype --src-type=LOCAL -j RETURN;" + kMarking + " -j IMQ --todev 0;" +
         kTrackAsBefore;
}

std::string imq_download_rules(const std::string& wan) {
  return kIptables + "mangle -A " + kMarkIn + " -i " + shell_word(wan) + " -j IMQ --todev 0";
}

bool needs_drop_chain(const GlobalSet& set) {
  return set.global.upload.speed == 0 || set.global.download.speed == 0 ||
         default_blocked(set, Direction::upload) || default_blocked(set, Direction::download);
}

std::string drop_chain_commands() {
  return kIptables + "filter -F " + kDrop + kQuiet + " || " +  //
         kIptables + "filter -N " + kDrop + kQuiet;
}

std::string firewall_start_command() { return "sudo /opt/ostrea/sbin/firewall.init start opt-qos"; }

std::string firewall_end_commands() {
  return kIptables + "filter -F " + kDrop + kQuiet + ";" + kTrackAsBefore;
}

}  // namespace quenby
