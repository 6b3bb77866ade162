#include "ctl/plan.h"

#include <iostream>

#include "ctl/plan_facts.h"
#include "ctl/plan_output.h"
#include "ctl/refusal.h"
#include "shaper/session.h"

namespace quenby {
Status plan(const PlanOptions& options) {
  return or_refusal([&options] {
    const Edit edit = edit_of(options.command, "plan");
    read_psched_hz();
    const Plan plan = plan_of(edit, facts_for(edit));
    std::cout << (options.json ? json_text(plan) : to_text(plan));
    return kFine;
  });
}

}  // namespace quenby
