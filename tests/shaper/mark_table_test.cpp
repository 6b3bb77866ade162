#include "shaper/mark_table.h"

#include <arpa/inet.h>

#include <gtest/gtest.h>

#include "shaper/connections.h"

// Which mark a connection gets from its addresses.
namespace quenby {
namespace {

constexpr std::uint32_t kDefaultMark = 0x80000003;

AddressSetEntry entry(const char* address, std::uint32_t number) {
  return address_set_entry(inet_addr(address), number);
}

std::uint32_t mark_of(const MarkTable& marks, const char* source, const char* reply_source) {
  return marks.connection_mark(inet_addr(source), inet_addr(reply_source));
}

TEST(MarkTable, ASubscribersConnectionHasHisMark) {
  const MarkTable marks(
      {entry("10.0.0.7", 4), entry("10.0.0.8", 5), entry("10.0.0.9", 6), entry("10.0.0.9", 9)});
  const struct {
    const char* what;
    const char* source;
    const char* reply_source;
    std::uint32_t mark;
  } rows[] = {
      {"his own", "10.0.0.7", "198.51.100.1", 0x80000004},
      {"another's", "10.0.0.8", "198.51.100.1", 0x80000005},
      {"from outside: of who answers", "198.51.100.1", "10.0.0.7", 0x80000004},
      {"between two: of the one that began", "10.0.0.8", "10.0.0.7", 0x80000005},
      {"of two entries the last", "10.0.0.9", "198.51.100.1", 0x80000009},
      {"any other", "10.0.0.1", "198.51.100.1", kDefaultMark},
  };
  for (const auto& row : rows)
    EXPECT_EQ(mark_of(marks, row.source, row.reply_source), row.mark) << row.what;
  EXPECT_EQ(mark_of(MarkTable({}), "10.0.0.7", "198.51.100.1"), kDefaultMark);
}

TEST(MarkTable, AFilterForOneMarkPicksItAloneForSeveralAllOfOurs) {
  const MarkFilter one = one_of({0x80000004, 0x80000004});
  EXPECT_EQ(one.mark, 0x80000004);
  EXPECT_EQ(one.mask, 0x80003fff);
  for (const MarkFilter& filter : {one_of({0x80000004, 0x80000005}), one_of({}), any_mark()}) {
    EXPECT_EQ(filter.mark, 0x80000000);
    EXPECT_EQ(filter.mask, 0x80000000);
  }
}

}  // namespace
}  // namespace quenby
