#include "ctl/who.h"

#include <iostream>
#include <utility>

#include "ctl/kernel_drift.h"
#include "ctl/refusal.h"
#include "ctl/run_lock.h"
#include "ctl/who_value.h"

namespace quenby {
namespace {

Address read_address(const std::string& text) {
  const auto address = parse_address(text);
  const char* const family = text.find(':') == std::string::npos ? "IPv4" : "IPv6";
  if (!address) throw NotRun("\"" + text + "\" is no " + family + " address");
  return *address;
}

WhoFacts read_facts() {
  const RunLock lock;
  Asked asked = read_asked();
  const Session session = open_session();
  WhoFacts facts;
  facts.line.shaping = shaping_of(asked.edit, asked.settings, asked.wanted.state, asked.router);
  KernelReading read;
  facts.drift = all_drift(asked, find_drift(session, asked.wanted, &read));
  if (read.set) facts.entries = std::move(read.set->entries);
  facts.connections = list_connections(session.netfilter, any_mark());
  facts.line.settings = std::move(asked.settings);
  if (!facts.line.shaping.ipv6) return facts;
  if (read.prefix_set) facts.prefix_entries = std::move(read.prefix_set->entries);
  facts.ip6_connections = list_ip6_connections(session.netfilter, any_mark());
  return facts;
}

}  // namespace

Status who(const WhoOptions& options) {
  return or_refusal([&options] {
    std::vector<Address> addresses;
    for (const std::string& text : options.addresses) addresses.push_back(read_address(text));
    const WhoFacts facts = read_facts();
    std::vector<Who> list;
    bool fine = true;
    for (const Address& address : addresses) {
      list.push_back(who_has(address, facts));
      fine = fine && list.back().problems.empty();
    }
    if (options.json) {
      std::cout << json_text(list);
    } else {
      for (const Who& one : list) std::cout << to_text(one);
    }
    return fine ? kFine : kFindings;
  });
}

}  // namespace quenby
