#include "tc/redirect.h"

#include "cli/system.h"
#include "tc/handles.h"
#include "tc/text.h"

namespace quenby {

std::string redirect_command(const std::string& wan, bool restore_mark) {
  return "/sbin/tc filter add dev " + shell_word(wan) + " parent " + hex(kIngressMajor) +
         ": protocol ip pref 1 u32 match u32 0 0 " + (restore_mark ? "action connmark " : "") +
         "action mirred egress redirect dev " + kIfbName;
}

}  // namespace quenby
