#include "tc/handles.h"

#include <linux/pkt_sched.h>

#include <array>
#include <charconv>

namespace quenby {
namespace {

constexpr std::uint32_t kUploadLeafOffset = 20000;

}  // namespace

std::uint32_t class_minor(HandleScheme scheme, unsigned number) {
  switch (scheme) {
    case HandleScheme::mark:
      return number & kClassMask;
    case HandleScheme::imq_download:
      return number;
    case HandleScheme::imq_upload:
      return number + kUploadClassOffset;
  }
  return number;
}

std::uint32_t class_handle(std::uint32_t minor) { return kHtbHandle | TC_H_MIN(minor); }

std::uint32_t leaf_handle(HandleScheme scheme, unsigned number) {
  const std::uint32_t offset = scheme == HandleScheme::imq_upload ? kUploadLeafOffset : 0;
  const std::uint32_t handle = (number + kHtbMajor + offset) << 16;
  // To the kernel handle 0 means that it is to choose one.
  return handle != 0 ? handle : leaf_handle(scheme, 0);
}

std::uint32_t class_mark(std::uint64_t number) {
  return kMarkFlag | (static_cast<std::uint32_t>(number) & kClassMask);
}

std::string hex(std::uint32_t number) {
  std::array<char, 8> digits{};
  char* const end = digits.data() + digits.size();
  return {digits.data(), std::to_chars(digits.data(), end, number, 16).ptr};
}

std::string handle_text(std::uint32_t handle) {
  if (handle == TC_H_ROOT) return "root";
  if (handle == TC_H_INGRESS) return "ingress";
  const std::uint32_t minor = TC_H_MIN(handle);
  return hex(TC_H_MAJ(handle) >> 16) + ":" + (minor == 0 ? "" : hex(minor));
}

}  // namespace quenby
