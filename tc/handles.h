#pragma once

#include <cstdint>
#include <string>

#include "model/class_numbers.h"

/// The numbers of every qdisc, class and packet mark. A handle is major << 16 | minor, written
/// M:m in hexadecimal by tc.
///
///   qdisc 8000:0            HTB root of every device
///   class 8000:1            root class
///   class 8000:2            default class
///   class 8000:3            default tariff's class
///   class 8000:N            tariff N, 14 bits
///   qdisc (8000 + N):0      leaf under class N
///
/// On the IMQ device both directions share one HTB qdisc: upload adds 0x8000 to its class minors
/// and 20000 to its leaf majors, of which 16 bits count. That leaves tariff 12768 none; its upload
/// leaf takes the major of number 0, which no tariff has.
namespace quenby {

inline constexpr std::uint32_t kHtbMajor = 0x8000;
inline constexpr std::uint32_t kHtbHandle = kHtbMajor << 16;
inline constexpr std::uint32_t kIngressMajor = 0xffff;
inline constexpr std::uint32_t kIngressHandle = kIngressMajor << 16;
/// Handle of the plain fair queue that takes the place of HTB on a blocked line.
inline constexpr std::uint32_t kPlainRootHandle = 1 << 16;

/// The bits of a class number that fit into a packet mark.
inline constexpr std::uint32_t kClassMask = 0x3fff;
/// Set in the mark of every packet that the shaper has classified.
inline constexpr std::uint32_t kMarkFlag = 0x80000000;
/// The mark bits that are ours; all others belong to other users.
inline constexpr std::uint32_t kMarkMask = kMarkFlag | kClassMask;

/// Of our mark bits in an incoming packet that is taken in a second time. It lacks the flag, so
/// that no class is meant.
inline constexpr std::uint32_t kSecondTimeMark = 1;

/// What upload adds to its class minors on the IMQ device.
inline constexpr std::uint32_t kUploadClassOffset = 0x8000;

/// How a device numbers its classes.
enum class HandleScheme { mark, imq_download, imq_upload };

/// The class minor of class number `number`.
std::uint32_t class_minor(HandleScheme scheme, unsigned number);
/// The class handle whose minor is `minor`.
std::uint32_t class_handle(std::uint32_t minor);
/// The handle of the leaf qdisc under class number `number`.
std::uint32_t leaf_handle(HandleScheme scheme, unsigned number);

/// The packet mark of class number `number`.
std::uint32_t class_mark(std::uint64_t number);

/// `number` in lower-case hexadecimal, without leading zeros or a prefix.
std::string hex(std::uint32_t number);
/// A handle as tc prints it, "8000:4"; "root" and "ingress" for the two parents that have names.
std::string handle_text(std::uint32_t handle);

}  // namespace quenby
