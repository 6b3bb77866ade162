#include "shaper/firewall_state.h"

#include <algorithm>
#include <sstream>

#include "cli/system.h"
#include "tc/firewall_rules.h"
#include "tc/handles.h"

namespace quenby {
namespace {

const FirewallChain kMarkOut = {"mangle", kMarkOutChain};
const FirewallChain kMarkIn = {"mangle", kMarkInChain};
const FirewallChain kDrop = {"filter", kDropChain};
const FirewallChain kForwardOut = {"filter", kForwardOutChain};
const FirewallChain kForwardIn = {"filter", kForwardInChain};
const FirewallChain kTracking = {"raw", kTrackingChain};

const FirewallRule kJump = {"-j", kDropChain};

// The words of a line: quotes of both kinds and backslashes as the shell and iptables use them.
class Words {
 public:
  Words(const std::string& text, char separator) : text_(text), separator_(separator) {}

  // Appends the words up to a separator outside quotes or the end of the text. False at the end.
  bool next_command(std::vector<std::string>& words) {
    if (at_ == text_.size()) return false;
    while (at_ < text_.size() && text_[at_] != separator_) {
      if (text_[at_] == ' ' || text_[at_] == '\n') {
        ++at_;
      } else {
        words.push_back(word());
      }
    }
    if (at_ < text_.size()) ++at_;
    return true;
  }

 private:
  std::string word() {
    std::string word;
    char quote = '\0';
    for (; at_ < text_.size(); ++at_) {
      const char c = text_[at_];
      if (quote == '\0' && (c == ' ' || c == '\n' || c == separator_)) break;
      if (quote == '\0' && (c == '\'' || c == '"')) {
        quote = c;
      } else if (c == quote) {
        quote = '\0';
      } else if (c == '\\' && quote != '\'' && at_ + 1 < text_.size()) {
        word += text_[++at_];
      } else {
        word += c;
      }
    }
    return word;
  }

  const std::string& text_;
  char separator_;
  std::size_t at_ = 0;
};

bool is_number(const std::string& text) {
  std::size_t end = 0;
  try {
    std::stoul(text, &end, 0);
  } catch (const std::exception&) {
    return false;
  }
  return end == text.size();
}

std::string as_hex(const std::string& number) {
  return "0x" + hex(static_cast<std::uint32_t>(std::stoul(number, nullptr, 0)));
}

// One spelling of what can be spelled in several ways: "--name=value", and numbers with a mask.
void append_word(FirewallRule& rule, const std::string& word) {
  const std::size_t equals = word.find('=');
  const std::size_t slash = word.find('/');
  if (word.starts_with("--") && equals != std::string::npos) {
    rule.push_back(word.substr(0, equals));
    append_word(rule, word.substr(equals + 1));
  } else if (slash != std::string::npos && is_number(word.substr(0, slash)) &&
             is_number(word.substr(slash + 1))) {
    rule.push_back(as_hex(word.substr(0, slash)) + '/' + as_hex(word.substr(slash + 1)));
  } else {
    rule.push_back(word);
  }
}

FirewallRule rule_from(const std::vector<std::string>& words, std::size_t first) {
  FirewallRule rule;
  for (std::size_t i = first; i < words.size(); ++i) append_word(rule, words[i]);
  return rule;
}

std::string text_of(const FirewallRule& rule) {
  std::string text;
  for (const std::string& word : rule) text += (text.empty() ? "" : " ") + word;
  return text;
}

std::string quoted(const FirewallRule& rule) {
  std::string text;
  for (const std::string& word : rule) text += ' ' + shell_word(word);
  return text;
}

std::string name_of(const FirewallChain& chain) { return chain.first + ' ' + chain.second; }

const char* program(Family family) { return family == Family::ipv6 ? "ip6tables" : "iptables"; }

const std::vector<FirewallRule>* rules_of(const StandingFirewall& standing,
                                          const FirewallChain& chain) {
  const auto found = standing.rules.find(chain);
  return found == standing.rules.end() ? nullptr : &found->second;
}

bool is_jumped_to(const StandingFirewall& standing, const FirewallChain& chain) {
  return std::any_of(standing.rules.begin(), standing.rules.end(), [&](const auto& entry) {
    return entry.first.first == chain.first &&
           std::any_of(entry.second.begin(), entry.second.end(), [&](const FirewallRule& rule) {
             const auto target = std::find(rule.begin(), rule.end(), "-j");
             return target != rule.end() && std::next(target) != rule.end() &&
                    *std::next(target) == chain.second;
           });
  });
}

class Comparison {
 public:
  Comparison(const WantedFirewall& wanted, const StandingFirewall& standing, Family family)
      : wanted_(wanted), standing_(standing), family_(family) {}

  std::vector<Drift> run();

 private:
  Drift& note(DriftKind kind, const std::string& object, Cure cure) {
    const std::string family = family_ == Family::ipv6 ? "IPv6 " : "";
    return found_.emplace_back(
        Drift{kind, "firewall", family + object, "", std::move(cure), false});
  }
  Drift& note(DriftKind kind, const std::string& object, const std::string& command) {
    return note(kind, object, Mendings{RunCommand{command}});
  }
  std::string command(const FirewallChain& chain, const std::string& action,
                      const std::string& rest) const {
    return std::string("sudo ") + program(family_) + " -t " + chain.first + ' ' + action + ' ' +
           chain.second + rest;
  }

  bool knows(const FirewallChain& chain) const { return standing_.unknown.count(chain.first) == 0; }
  bool platform_has(const FirewallChain& chain);
  void compare_chain(const FirewallChain& chain);
  void compare_rules(const FirewallChain& chain, const std::vector<FirewallRule>& wanted,
                     const std::vector<FirewallRule>& standing);
  void compare_jumps(const FirewallChain& hook);
  void compare_tracking();

  const WantedFirewall& wanted_;
  const StandingFirewall& standing_;
  Family family_;
  std::vector<Drift> found_;
};

std::vector<Drift> Comparison::run() {
  for (const std::string& table : standing_.unknown) {
    note(DriftKind::different, "table " + table, UnlistedTable{family_, table}).detail =
        "cannot be listed";
  }
  if (knows(kTracking)) compare_tracking();
  for (const FirewallChain& chain : {kMarkOut, kMarkIn, kDrop}) {
    if (knows(chain)) compare_chain(chain);
  }
  for (const FirewallChain& hook : {kForwardOut, kForwardIn}) {
    if (knows(hook)) compare_jumps(hook);
  }
  return std::move(found_);
}

bool Comparison::platform_has(const FirewallChain& chain) {
  if (rules_of(standing_, chain) == nullptr) {
    note(DriftKind::missing, "chain " + name_of(chain), firewall_start_command());
  } else if (!is_jumped_to(standing_, chain)) {
    note(DriftKind::missing, "jump to " + name_of(chain), firewall_start_command());
  } else {
    return true;
  }
  return false;
}

void Comparison::compare_chain(const FirewallChain& chain) {
  const auto entry = wanted_.rules.find(chain);
  const std::vector<FirewallRule> none;
  const std::vector<FirewallRule>& wanted = entry == wanted_.rules.end() ? none : entry->second;
  const std::vector<FirewallRule>* const standing = rules_of(standing_, chain);
  if (!wanted.empty() && chain != kDrop && !platform_has(chain)) return;
  if (standing == nullptr && !wanted.empty())
    note(DriftKind::missing, "chain " + name_of(chain), drop_chain_commands(family_));
  compare_rules(chain, wanted, standing == nullptr ? none : *standing);
}

// Puts the rules right from the last to the first, so that positions before stay as they are.
void Comparison::compare_rules(const FirewallChain& chain, const std::vector<FirewallRule>& wanted,
                               const std::vector<FirewallRule>& standing) {
  // The most rules that the first i of the one and the first j of the other have in common.
  std::vector<std::vector<std::size_t>> common(wanted.size() + 1,
                                               std::vector<std::size_t>(standing.size() + 1));
  for (std::size_t i = 1; i <= wanted.size(); ++i) {
    for (std::size_t j = 1; j <= standing.size(); ++j) {
      common[i][j] = wanted[i - 1] == standing[j - 1]
                         ? common[i - 1][j - 1] + 1
                         : std::max(common[i - 1][j], common[i][j - 1]);
    }
  }
  std::size_t i = wanted.size();
  std::size_t j = standing.size();
  while (i > 0 || j > 0) {
    if (i > 0 && j > 0 && wanted[i - 1] == standing[j - 1]) {
      --i, --j;
    } else if (j == 0 || (i > 0 && common[i - 1][j] >= common[i][j - 1])) {
      --i;
      note(DriftKind::missing, "rule " + name_of(chain) + ' ' + text_of(wanted[i]),
           command(chain, "-I", ' ' + std::to_string(j + 1) + quoted(wanted[i])));
    } else {
      --j;
      note(DriftKind::unwanted, "rule " + name_of(chain) + ' ' + text_of(standing[j]),
           command(chain, "-D", ' ' + std::to_string(j + 1)));
    }
  }
}

void Comparison::compare_jumps(const FirewallChain& hook) {
  const bool wants = wanted_.jumps.count(hook) != 0;
  if (wants && !platform_has(hook)) return;
  const std::vector<FirewallRule>* const standing = rules_of(standing_, hook);
  auto jumps = standing == nullptr ? 0 : std::count(standing->begin(), standing->end(), kJump);
  const std::string object = "rule " + name_of(hook) + ' ' + text_of(kJump);
  if (wants && jumps == 0)
    note(DriftKind::missing, object, command(hook, "-I", " 1" + quoted(kJump)));
  for (; jumps > (wants ? 1 : 0); --jumps)
    note(DriftKind::unwanted, object, command(hook, "-D", quoted(kJump)));
}

void Comparison::compare_tracking() {
  if (wanted_.tracking.empty()) return;
  const std::vector<FirewallRule>* const standing = rules_of(standing_, kTracking);
  // The platform's own choice needs no chain.
  const bool own_choice = wanted_.tracking == FirewallRule{"-j", "RETURN"};
  if (own_choice && standing == nullptr) return;
  if (!own_choice && !platform_has(kTracking)) return;
  if (standing->empty()) {
    note(DriftKind::missing, "rule " + name_of(kTracking), firewall_start_command());
  } else if (standing->front() != wanted_.tracking) {
    Drift& drift = note(DriftKind::different, "rule " + name_of(kTracking) + " 1",
                        command(kTracking, "-R", " 1" + quoted(wanted_.tracking)));
    drift.detail = text_of(standing->front()) + ", not " + text_of(wanted_.tracking);
  }
}

}  // namespace

WantedFirewall wanted_firewall(const std::string& commands) {
  WantedFirewall wanted;
  Words list(commands, ';');
  for (std::vector<std::string> words; list.next_command(words); words.clear()) {
    // sudo iptables -t TABLE ACTION CHAIN ...
    if (words.size() < 6) continue;
    const FirewallChain chain = {words[3], words[5]};
    if (words[4] == "-A") {
      wanted.rules[chain].push_back(rule_from(words, 6));
    } else if (words[4] == "-I") {
      wanted.jumps.insert(chain);
    } else if (words[4] == "-R") {
      wanted.tracking = rule_from(words, 7);
    }
  }
  return wanted;
}

void read_listing(const std::string& table, const std::string& listing,
                  StandingFirewall& firewall) {
  std::istringstream lines(listing);
  for (std::string line; std::getline(lines, line);) {
    std::vector<std::string> words;
    Words(line, '\n').next_command(words);
    if (words.size() < 2) continue;
    std::vector<FirewallRule>& rules = firewall.rules[{table, words[1]}];
    if (words[0] == "-A") rules.push_back(rule_from(words, 2));
  }
}

StandingFirewall read_firewall(Family family) {
  StandingFirewall firewall;
  for (const char* const table : {"mangle", "filter", "raw"}) {
    const auto listing = read_command(std::string("PATH=$PATH:/usr/sbin:/sbin ") + program(family) +
                                      " -w 10 -t " + table + " -S 2>/dev/null");
    if (listing) {
      read_listing(table, *listing, firewall);
    } else {
      firewall.unknown.insert(table);
    }
  }
  return firewall;
}

std::vector<Drift> firewall_drift(const WantedFirewall& wanted, const StandingFirewall& standing,
                                  Family family) {
  return Comparison(wanted, standing, family).run();
}

}  // namespace quenby
