#include "ctl/plan_facts.h"

#include <net/if.h>

#include <unistd.h>

#include "shaper/hardware.h"
#include "shaper/htb_shaper.h"
#include "shaper/ipv6_note.h"

namespace quenby {

PlanFacts facts_for(const Edit& edit) {
  const std::string& wan = edit.line.global.wan;
  PlanFacts facts;
  facts.link_speed = link_speed(wan);
  facts.router.has_wan = !wan.empty() && if_nametoindex(wan.c_str()) != 0;
  if (!wan.empty() || !edit.line_before.global.wan.empty()) facts.router.board = board_name();
  facts.ipv6_noted = ipv6_is_noted();
  if (geteuid() == 0) {
    facts.stands = [](const ResolvedSettings& settings) {
      return HtbShaper().everything_stands(settings);
    };
  }
  return facts;
}

}  // namespace quenby
