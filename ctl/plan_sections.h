#pragma once

#include "ctl/plan_value.h"

namespace quenby {

/// How the stored files differ before and after, in the words of the files.
void compare_sections(const Edit& edit, std::vector<SectionChange>& line,
                      std::vector<std::string>& added, std::vector<std::string>& removed,
                      std::vector<SectionChange>& changed);

}  // namespace quenby
