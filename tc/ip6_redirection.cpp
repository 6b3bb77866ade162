#include "tc/ip6_redirection.h"

#include <linux/pkt_cls.h>
#include <linux/tc_act/tc_mirred.h>

#include <cstring>
#include <netinet/in.h>

#include "cli/system.h"
#include "tc/attributes.h"
#include "tc/handles.h"
#include "tc/links.h"

namespace quenby {
namespace {

// The number of the next header is the third byte of the header's second word; an extension header
// begins with that of the header after it.
constexpr unsigned kNextHeaderShift = 8;
constexpr unsigned kFirstByteShift = 24;
constexpr std::uint32_t kByte = 0xff;
constexpr int kNextHeaderOffset = 4;
constexpr int kExtensionOffset = 40;

HeaderWord next_header(std::uint32_t number) {
  return {number << kNextHeaderShift, kByte << kNextHeaderShift, kNextHeaderOffset};
}

HeaderWord after_extension(std::uint32_t number) {
  return {number << kFirstByteShift, kByte << kFirstByteShift, kExtensionOffset};
}

std::string match_text(const HeaderWord& word) {
  return " match u32 0x" + hex(word.value) + " 0x" + hex(word.mask) + " at " +
         std::to_string(word.offset);
}

std::string actions_text(const Ip6Redirection& filter, const std::string& wan) {
  if (filter.gathers) return " action ct action mirred ingress redirect dev " + wan;
  return std::string(filter.restores_mark ? " action connmark" : "") +
         " action mirred egress redirect dev " + kIfbName;
}

std::vector<HeaderWord> read_words(nlattr* attribute) {
  std::vector<HeaderWord> words;
  if (attribute == nullptr) return words;
  const auto size = static_cast<std::size_t>(nla_len(attribute));
  const auto* const selector = static_cast<const char*>(nla_data(attribute));
  for (std::size_t at = sizeof(tc_u32_sel); at + sizeof(tc_u32_key) <= size;
       at += sizeof(tc_u32_key)) {
    tc_u32_key key;
    std::memcpy(&key, selector + at, sizeof(key));
    words.push_back({ntohl(key.val), ntohl(key.mask), key.off});
  }
  return words;
}

// Takes an action into account; false for one that no filter of ours has.
bool read_action(nlattr* attribute, int ifindex, StandingIp6Redirection& standing) {
  const Nest<TCA_ACT_MAX> action(attribute);
  Ip6Redirection& filter = standing.filter;
  if (has_kind(action[TCA_ACT_KIND], "connmark")) return filter.restores_mark = true;
  if (has_kind(action[TCA_ACT_KIND], "ct")) return filter.gathers = true;
  if (!has_kind(action[TCA_ACT_KIND], "mirred")) return false;
  const auto mirred =
      value<tc_mirred>(Nest<TCA_MIRRED_MAX>(action[TCA_ACT_OPTIONS])[TCA_MIRRED_PARMS]);
  if (!mirred) return false;
  standing.target = static_cast<int>(mirred->ifindex);
  if (!filter.gathers) return mirred->eaction == TCA_EGRESS_REDIR;
  return mirred->eaction == TCA_INGRESS_REDIR && standing.target == ifindex;
}

}  // namespace

std::vector<Ip6Redirection> ip6_redirections(bool restore_mark) {
  std::vector<Ip6Redirection> filters = {{{next_header(IPPROTO_FRAGMENT)}, true, false}};
  for (const int before : {IPPROTO_HOPOPTS, IPPROTO_ROUTING, IPPROTO_DSTOPTS}) {
    filters.push_back(
        {{next_header(static_cast<std::uint32_t>(before)), after_extension(IPPROTO_FRAGMENT)},
         true,
         false});
  }
  filters.push_back({{HeaderWord{}}, false, restore_mark});
  return filters;
}

std::string ip6_redirect_commands(const std::string& wan, bool restore_mark) {
  const std::string device = shell_word(wan);
  std::string commands;
  for (const Ip6Redirection& filter : ip6_redirections(restore_mark)) {
    if (!commands.empty()) commands += " && ";
    commands += "/sbin/tc filter add dev " + device + " parent " + hex(kIngressMajor) +
                ": protocol ipv6 pref " + std::to_string(kIp6RedirectionPrio) + " u32";
    for (const HeaderWord& word : filter.words) commands += match_text(word);
    commands += actions_text(filter, device);
  }
  return commands;
}

std::optional<StandingIp6Redirection> read_ip6_redirection(int ifindex, std::uint32_t handle,
                                                           nlattr* options) {
  const Nest<TCA_U32_MAX> members(options);
  StandingIp6Redirection standing{{read_words(members[TCA_U32_SEL]), false, false}, handle, 0};
  if (members[TCA_U32_ACT] == nullptr) return std::nullopt;
  const Nest<TCA_ACT_MAX_PRIO> actions(members[TCA_U32_ACT]);
  for (nlattr* const action : actions.members) {
    if (action != nullptr && !read_action(action, ifindex, standing)) return std::nullopt;
  }
  return standing;
}

}  // namespace quenby
