#pragma once

#include <linux/netlink.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

/// Netlink requests as text: one line of type and flags, then the header's fields and the
/// attributes by name, nested ones indented by two blanks more.
///
/// Attributes of the routing family come in the order of their numbers, which is nobody's promise;
/// those of the ipset family come in the order of the message.
namespace golden {

/// A request of netlink family `protocol` (NETLINK_ROUTE, NETLINK_NETFILTER), every line ended.
std::string decode(const nlmsghdr& message, int protocol);

/// The same in one line: type, flags other than REQUEST and ACK, and what it is about.
std::string summary(const nlmsghdr& message, int protocol);
/// The same and, on a second line, the values of its kind's own attributes. Of a request about a
/// qdisc, class or classifier.
std::string values(const nlmsghdr& message, int protocol);

// Helpers of the decoders.

/// Lines under a common indentation.
class Text {
 public:
  explicit Text(std::string& out, int depth = 0) : out_(out), depth_(depth) {}
  void line(const std::string& content) const;
  Text deeper() const { return Text(out_, depth_ + 1); }

 private:
  std::string& out_;
  int depth_;
};

/// One attribute of a message; the payload stays in the message.
struct Attribute {
  int number = 0;
  bool nested = false;
  bool net_order = false;
  std::string_view payload;
};

std::vector<Attribute> attributes_in_order(std::string_view stream);
std::vector<Attribute> attributes_by_number(std::string_view stream);
/// The payload after a family header of `header` bytes.
std::string_view attribute_stream(const nlmsghdr& message, std::size_t header);

/// The start of a payload as a plain value; zeros stand for what is missing.
template <typename T>
T value_of(std::string_view payload) {
  // Not by an initialiser: some of the kernel's structures end in an array of no elements.
  T value;
  std::memset(&value, 0, sizeof(value));
  payload.copy(reinterpret_cast<char*>(&value), sizeof(value));
  return value;
}

std::string hex(std::uint32_t number);
std::string bytes(std::string_view payload);
/// A string attribute in quotes, without its NUL.
std::string quoted(std::string_view payload);
/// The family header of a message.
template <typename T>
T header_of(const nlmsghdr& message) {
  return value_of<T>(attribute_stream(message, 0));
}

/// "REQUEST|ACK|CREATE"; the meaning of the upper flags follows from the kind of request.
enum class Request { make, get, remove };
std::string flag_names(unsigned flags, Request request, std::string_view separator);

/// One line for an attribute that no decoder knows.
void unknown(const Text& text, const Attribute& attribute);

// One decoder per family.
bool is_tc(int type);
void decode_tc(const nlmsghdr& message, const Text& text);
std::string summarize_tc(const nlmsghdr& message);
/// The kind's own attributes.
void decode_options(std::string_view kind, std::string_view options, const Text& text);
/// "8000:5", "root", "ingress" or "none".
std::string handle_text(std::uint32_t handle);
/// "table 20 bucket 1 node 0".
std::string u32_handle_text(std::uint32_t handle);
void decode_link(const nlmsghdr& message, const Text& text);
std::string summarize_link(const nlmsghdr& message);
void decode_ipset(const nlmsghdr& message, const Text& text);
std::string summarize_ipset(const nlmsghdr& message);
bool is_conntrack(int type);
void decode_conntrack(const nlmsghdr& message, const Text& text);
std::string summarize_conntrack(const nlmsghdr& message);

}  // namespace golden
