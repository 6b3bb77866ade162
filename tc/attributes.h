#pragma once

#include <netlink/attr.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <optional>

/// Reading the attributes of messages that libnl has no objects for.
namespace quenby {

/// The start of an attribute as a plain value; nothing when it is missing or shorter.
template <typename T>
std::optional<T> value(nlattr* attribute) {
  if (attribute == nullptr || nla_len(attribute) < static_cast<int>(sizeof(T))) return {};
  T result;
  std::memcpy(&result, nla_data(attribute), sizeof(T));
  return result;
}

/// The members of a nested attribute by their numbers, those that are missing null.
template <std::size_t Max>
struct Nest {
  explicit Nest(nlattr* attribute) {
    if (attribute == nullptr || nla_parse_nested(members, int{Max}, attribute, nullptr) < 0)
      std::fill(std::begin(members), std::end(members), nullptr);
  }
  nlattr* operator[](std::size_t number) const { return members[number]; }

  nlattr* members[Max + 1];
};

/// Whether an attribute is this text.
inline bool has_kind(nlattr* attribute, const char* kind) {
  return attribute != nullptr && nla_strcmp(attribute, kind) == 0;
}

}  // namespace quenby
