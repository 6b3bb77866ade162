#include "tc/ip6_redirection.h"

#include <linux/pkt_cls.h>
#include <linux/tc_act/tc_mirred.h>
#include <linux/tc_act/tc_skbedit.h>

#include <cstring>
#include <netinet/in.h>

#include "cli/system.h"
#include "tc/attributes.h"
#include "tc/handles.h"
#include "tc/links.h"

namespace quenby {
namespace {

// The number of the next header is the third byte of the header's second word.
constexpr unsigned kNextHeaderShift = 8;
constexpr std::uint32_t kByte = 0xff;
constexpr int kNextHeaderOffset = 4;

// Those behind which the kernel looks for a fragment header, itself first.
constexpr std::uint32_t kExtensions[] = {IPPROTO_FRAGMENT, IPPROTO_HOPOPTS, IPPROTO_ROUTING,
                                         IPPROTO_AH, IPPROTO_DSTOPTS};

HeaderWord next_header(std::uint32_t number) {
  return {number << kNextHeaderShift, kByte << kNextHeaderShift, kNextHeaderOffset};
}

std::string mark_text(std::uint32_t mark, const char* between) {
  return "mark 0x" + hex(mark) + between + "0x" + hex(kMarkMask);
}

std::string match_text(const HeaderWord& word) {
  return " match u32 0x" + hex(word.value) + " 0x" + hex(word.mask) + " at " +
         std::to_string(word.offset);
}

std::string actions_text(const Ip6Redirection& filter, const std::string& wan) {
  if (filter.gathers) {
    return " action ct action skbedit " + mark_text(kSecondTimeMark, "/") +
           " action mirred ingress redirect dev " + wan;
  }
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

bool is_for_the_unmarked(nlattr* attribute) {
  const auto mark = value<tc_u32_mark>(attribute);
  return mark && mark->val == 0 && mark->mask == kMarkMask;
}

bool marks_second_time(nlattr* attribute) {
  const Nest<TCA_SKBEDIT_MAX> options(attribute);
  return value<std::uint32_t>(options[TCA_SKBEDIT_MARK]) == kSecondTimeMark &&
         value<std::uint32_t>(options[TCA_SKBEDIT_MASK]) == kMarkMask;
}

struct Actions {
  bool gathers = false;
  bool marks = false;
  bool restores_mark = false;
  bool others = false;
  tc_mirred redirection{};
};

void read_action(nlattr* attribute, Actions& actions) {
  const Nest<TCA_ACT_MAX> action(attribute);
  nlattr* const kind = action[TCA_ACT_KIND];
  nlattr* const options = action[TCA_ACT_OPTIONS];
  if (has_kind(kind, "ct")) {
    actions.gathers = true;
  } else if (has_kind(kind, "skbedit") && marks_second_time(options)) {
    actions.marks = true;
  } else if (has_kind(kind, "connmark")) {
    actions.restores_mark = true;
  } else if (has_kind(kind, "mirred")) {
    const Nest<TCA_MIRRED_MAX> mirred(options);
    actions.redirection = value<tc_mirred>(mirred[TCA_MIRRED_PARMS]).value_or(tc_mirred{});
  } else {
    actions.others = true;
  }
}

Actions read_actions(nlattr* attribute) {
  Actions actions;
  if (attribute == nullptr) return actions;
  const Nest<TCA_ACT_MAX_PRIO> list(attribute);
  for (nlattr* const action : list.members) {
    if (action != nullptr) read_action(action, actions);
  }
  return actions;
}

}  // namespace

std::vector<Ip6Redirection> ip6_redirections(bool restore_mark) {
  std::vector<Ip6Redirection> filters;
  for (const std::uint32_t extension : kExtensions)
    filters.push_back({{next_header(extension)}, true, false});
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
    if (filter.gathers) commands += " match " + mark_text(0, " ");
    for (const HeaderWord& word : filter.words) commands += match_text(word);
    commands += actions_text(filter, device);
  }
  return commands;
}

std::optional<StandingIp6Redirection> read_ip6_redirection(int ifindex, std::uint32_t handle,
                                                           nlattr* options) {
  const Nest<TCA_U32_MAX> members(options);
  nlattr* const mark = members[TCA_U32_MARK];
  const Actions actions = read_actions(members[TCA_U32_ACT]);
  const int target = static_cast<int>(actions.redirection.ifindex);
  const bool gathers = actions.gathers && actions.marks && is_for_the_unmarked(mark) &&
                       actions.redirection.eaction == TCA_INGRESS_REDIR && target == ifindex;
  const bool redirects = !actions.gathers && !actions.marks && mark == nullptr &&
                         actions.redirection.eaction == TCA_EGRESS_REDIR;
  if (actions.others || gathers == redirects) return std::nullopt;
  return StandingIp6Redirection{
      {read_words(members[TCA_U32_SEL]), gathers, actions.restores_mark}, handle, target};
}

}  // namespace quenby
