#include "tc/handles.h"

namespace quenby {
namespace {

constexpr std::uint32_t kUploadClassOffset = 0x8000;
constexpr std::uint32_t kUploadLeafOffset = 20000;
constexpr std::uint32_t kMinorMask = 0xffff;

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

std::uint32_t class_handle(std::uint32_t minor) { return kHtbHandle | (minor & kMinorMask); }

std::uint32_t leaf_handle(HandleScheme scheme, unsigned number) {
  const std::uint32_t offset = scheme == HandleScheme::imq_upload ? kUploadLeafOffset : 0;
  const std::uint32_t handle = (number + kHtbMajor + offset) << 16;
  // To the kernel handle 0 means that it is to choose one.
  return handle != 0 ? handle : leaf_handle(scheme, 0);
}

std::uint32_t class_mark(std::uint64_t number) {
  return kMarkFlag | (static_cast<std::uint32_t>(number) & kClassMask);
}

}  // namespace quenby
