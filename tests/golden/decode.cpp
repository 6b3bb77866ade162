#include "tests/golden/decode.h"

#include <netlink/attr.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <sstream>

namespace golden {
namespace {

struct Flag {
  unsigned bit;
  const char* name;
};

constexpr std::array<Flag, 4> kMakeFlags = {{{NLM_F_REPLACE, "REPLACE"},
                                             {NLM_F_EXCL, "EXCL"},
                                             {NLM_F_CREATE, "CREATE"},
                                             {NLM_F_APPEND, "APPEND"}}};
constexpr std::array<Flag, 3> kCommonFlags = {
    {{NLM_F_REQUEST, "REQUEST"}, {NLM_F_ACK, "ACK"}, {NLM_F_ECHO, "ECHO"}}};

void append(std::string& names, const std::string& name, std::string_view separator) {
  if (!names.empty()) names += separator;
  names += name;
}

// Appends the names of the flags that are set and takes them out of `flags`.
template <typename Flags>
void take_flags(unsigned& flags, const Flags& known, std::string_view separator,
                std::string& names) {
  for (const Flag& flag : known) {
    if ((flags & flag.bit) == 0) continue;
    flags &= ~flag.bit;
    append(names, flag.name, separator);
  }
}

// The length of an attribute's head, which is aligned already.
constexpr std::size_t kHeadLength = sizeof(nlattr);

constexpr std::size_t aligned(std::size_t length) { return (length + 3) / 4 * 4; }

// Whether a decoded line only opens a nest, or is the same in every message.
bool says_nothing(std::string_view line) {
  constexpr std::array<std::string_view, 5> kLines = {"TCA_HTB_PARMS", "TCA_HTB_INIT",
                                                      "TCA_U32_SEL", "TCA_HTB_CTAB 1024 bytes",
                                                      "TCA_HTB_RTAB 1024 bytes"};
  return std::find(kLines.begin(), kLines.end(), line) != kLines.end();
}

// A decoded line without the words that a value can do without.
std::string short_form(std::string_view line) {
  for (const std::string_view prefix : {"TCA_HTB_", "TCA_U32_", "TCA_FQ_CODEL_"}) {
    if (line.starts_with(prefix)) line.remove_prefix(prefix.size());
  }
  for (const std::string_view suffix : {" bytes/s", " ticks", " level 0 prio 0"}) {
    if (line.ends_with(suffix)) line.remove_suffix(suffix.size());
  }
  return std::string(line);
}

}  // namespace

void Text::line(const std::string& content) const {
  out_.append(static_cast<std::size_t>(depth_) * 2, ' ');
  out_ += content + "\n";
}

std::vector<Attribute> attributes_in_order(std::string_view stream) {
  std::vector<Attribute> found;
  while (stream.size() >= kHeadLength) {
    const auto head = value_of<nlattr>(stream);
    if (head.nla_len < kHeadLength || head.nla_len > stream.size()) break;
    found.push_back({head.nla_type & NLA_TYPE_MASK, (head.nla_type & NLA_F_NESTED) != 0,
                     (head.nla_type & NLA_F_NET_BYTEORDER) != 0,
                     stream.substr(kHeadLength, head.nla_len - kHeadLength)});
    stream.remove_prefix(std::min(aligned(head.nla_len), stream.size()));
  }
  return found;
}

std::vector<Attribute> attributes_by_number(std::string_view stream) {
  std::vector<Attribute> found = attributes_in_order(stream);
  std::stable_sort(found.begin(), found.end(),
                   [](const Attribute& a, const Attribute& b) { return a.number < b.number; });
  return found;
}

std::string_view attribute_stream(const nlmsghdr& message, std::size_t header) {
  const auto* const start = reinterpret_cast<const char*>(&message);
  const std::size_t skip = sizeof(nlmsghdr) + aligned(header);
  return std::string_view(start, message.nlmsg_len)
      .substr(std::min<std::size_t>(skip, message.nlmsg_len));
}

std::string hex(std::uint32_t number) {
  std::array<char, 8> digits{};
  char* const end = digits.data() + digits.size();
  return {digits.data(), std::to_chars(digits.data(), end, number, 16).ptr};
}

std::string bytes(std::string_view payload) {
  std::string text;
  for (const char c : payload) {
    const auto byte = static_cast<unsigned char>(c);
    append(text, (byte < 16 ? "0" : "") + hex(byte), " ");
  }
  return text;
}

std::string quoted(std::string_view payload) {
  return "\"" + std::string(payload.substr(0, payload.find('\0'))) + "\"";
}

std::string flag_names(unsigned flags, Request request, std::string_view separator) {
  std::string names;
  take_flags(flags, kCommonFlags, separator, names);
  if (request == Request::make) take_flags(flags, kMakeFlags, separator, names);
  if (request == Request::get && (flags & NLM_F_DUMP) == NLM_F_DUMP) {
    flags &= ~unsigned{NLM_F_DUMP};
    append(names, "DUMP", separator);
  }
  if (flags != 0) append(names, "0x" + hex(flags), separator);
  return names;
}

void unknown(const Text& text, const Attribute& attribute) {
  text.line("attribute " + std::to_string(attribute.number) + ": " + bytes(attribute.payload));
}

std::string decode(const nlmsghdr& message, int protocol) {
  std::string out;
  const Text text(out);
  if (protocol == NETLINK_NETFILTER) {
    is_conntrack(message.nlmsg_type) ? decode_conntrack(message, text)
                                     : decode_ipset(message, text);
  } else if (is_tc(message.nlmsg_type)) {
    decode_tc(message, text);
  } else {
    decode_link(message, text);
  }
  return out;
}

std::string summary(const nlmsghdr& message, int protocol) {
  if (protocol == NETLINK_NETFILTER)
    return is_conntrack(message.nlmsg_type) ? summarize_conntrack(message)
                                            : summarize_ipset(message);
  return is_tc(message.nlmsg_type) ? summarize_tc(message) : summarize_link(message);
}

std::string values(const nlmsghdr& message, int protocol) {
  constexpr std::string_view kOption = "    ";
  std::string found;
  std::istringstream lines(decode(message, protocol));
  for (std::string line; std::getline(lines, line);) {
    if (!line.starts_with(kOption)) continue;
    line.erase(0, line.find_first_not_of(' '));
    if (!says_nothing(line)) append(found, short_form(line), " ");
  }
  return summary(message, protocol) + (found.empty() ? "" : "\n  " + found);
}

}  // namespace golden
