#include "tc/address_tree.h"

#include <arpa/inet.h>

#include <gtest/gtest.h>
#include <string>

#include "tc/tree_text.h"

namespace quenby {
namespace {

using enum HandleScheme;

std::uint32_t ip(const char* text) { return inet_addr(text); }

TEST(BaseTable, Has16BucketsAndAnIdOfItsOwnInEachDirection) {
  EXPECT_EQ(base_table(imq_download).id, 2U);
  EXPECT_EQ(base_table(imq_download).buckets, 16U);
  EXPECT_EQ(base_table(imq_upload).id, 19U);
  EXPECT_EQ(base_table(imq_upload).buckets, 16U);
}

// A filter's words, "2:1:0" for table, bucket and node; without a node the kernel numbers it. What
// they leave out is the same in all filters of the kind.
std::string words(const U32Filter& filter) {
  const bool is_link = filter.link_table != 0;
  EXPECT_EQ(filter.mask, is_link ? 0 : 0xffffffff);
  EXPECT_EQ(filter.hash_offset, is_link ? static_cast<std::uint32_t>(filter.offset) : 0);
  EXPECT_EQ(is_link, filter.value + filter.classid == 0);
  return match_text(filter);
}

// All that an address needs.
std::string words(const AddressFilters& filters) {
  std::string text;
  if (filters.table) {
    text += "table " + hex(filters.table->id) + ":, ";
    EXPECT_EQ(filters.table->buckets, 256U);
  }
  if (filters.link) text += words(*filters.link) + ", ";
  return text + words(filters.address);
}

TEST(BaseLink, HashesTheThirdOctetFromTheRootTable) {
  EXPECT_EQ(words(base_link(imq_download)), "u32 0:0:1 at 16 link 2: by ff00");
  EXPECT_EQ(words(base_link(imq_upload)), "u32 0:0:2 at 12 link 13: by ff00");
  EXPECT_TRUE(base_link(imq_download).in_root_table());
}

// Third octet 1: bucket 1, table 2 + 1 + 1; of the upload 19 + 1 + 1. The last octet is the bucket.
TEST(AddressTree, OfADownloadSharesTablesAndGivesNode0Once) {
  AddressTree tree(imq_download);
  const struct {
    const char* address;
    unsigned number;
    const char* words;
  } rows[] = {
      {"10.0.1.5", 7,
       "table 4:, u32 2:1:0 at 16 link 4: by ff, u32 4:5:0 at 16 match 10.0.1.5 class 8000:7"},
      {"10.0.17.9", 5, "u32 4:9:0 at 16 match 10.0.17.9 class 8000:5"},
      {"10.0.17.5", 5, "u32 4:5: at 16 match 10.0.17.5 class 8000:5"},
      {"192.168.33.5", 6, "u32 4:5: at 16 match 192.168.33.5 class 8000:6"},
      {"10.0.17.9", 6, "u32 4:9: at 16 match 10.0.17.9 class 8000:6"},
      {"10.0.2.5", 7,
       "table 5:, u32 2:2:0 at 16 link 5: by ff, u32 5:5:0 at 16 match 10.0.2.5 class 8000:7"},
      {"10.0.2.0", 7, "u32 5:0:0 at 16 match 10.0.2.0 class 8000:7"},
      {"10.0.2.128", 7, "u32 5:80:0 at 16 match 10.0.2.128 class 8000:7"},
      {"10.0.2.255", 7, "u32 5:ff:0 at 16 match 10.0.2.255 class 8000:7"},
  };
  for (const auto& row : rows)
    EXPECT_EQ(words(tree.add(ip(row.address), row.number)), row.words) << row.address;
}

TEST(AddressTree, OfAnUploadStartsWithTable20AndMatchesTheSource) {
  AddressTree tree(imq_upload);
  EXPECT_EQ(words(tree.add(ip("10.0.0.0"), 5)),
            "table 14:, u32 13:0:0 at 12 link 14: by ff, u32 14:0:0 at 12 match 10.0.0.0 class "
            "8000:8005");
  EXPECT_EQ(words(tree.add(ip("10.0.0.0"), 4)), "u32 14:0: at 12 match 10.0.0.0 class 8000:8004");
}

TEST(AddressTree, TakesTheBucketFromTheLowFourBitsOfTheThirdOctet) {
  const struct {
    const char* address;
    unsigned bucket;
    unsigned download_table;
    unsigned upload_table;
  } rows[] = {
      {"10.0.0.5", 0, 3, 20},      {"10.0.1.5", 1, 4, 21},  {"10.0.15.5", 15, 18, 35},
      {"10.0.16.5", 0, 3, 20},     {"10.0.17.5", 1, 4, 21}, {"10.0.255.5", 15, 18, 35},
      {"255.255.240.5", 0, 3, 20}, {"0.0.8.5", 8, 11, 28},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.address);
    const AddressFilters down = AddressTree(imq_download).add(ip(row.address), 4);
    EXPECT_EQ(down.link->bucket, row.bucket);
    EXPECT_EQ(down.table->id, row.download_table);
    EXPECT_EQ(down.address.table, row.download_table);
    const AddressFilters up = AddressTree(imq_upload).add(ip(row.address), 4);
    EXPECT_EQ(up.link->bucket, row.bucket);
    EXPECT_EQ(up.table->id, row.upload_table);
    EXPECT_EQ(up.address.table, row.upload_table);
  }
}

// Handles as the kernel lists them: table << 20 | bucket << 12 | node.
TEST(NotedFilters, OfTheBaseTableMarkTheirBucketWhateverTheirNode) {
  for (const std::uint32_t node : {0x0U, 0x1U, 0x800U}) {
    SCOPED_TRACE(node);
    AddressTree tree(imq_download);
    tree.note(0x00201000 | node);
    EXPECT_FALSE(tree.add(ip("10.0.1.5"), 4).table);
    EXPECT_TRUE(tree.add(ip("10.0.2.5"), 4).table);
  }
}

TEST(NotedFilters, OfTheOtherDirectionAndOfTheRootTableMarkNoBucket) {
  AddressTree tree(imq_download);
  tree.note(0x01301000);  // table 19
  tree.note(0x00405000);  // table 4
  tree.note(0x80001000);  // table 0x800
  EXPECT_TRUE(tree.add(ip("10.0.1.9"), 4).table);
}

TEST(NotedFilters, WithNode0TakeTheNodeOfTheirBucket) {
  AddressTree tree(imq_download);
  tree.note(0x00201000);
  tree.note(0x00405000);
  EXPECT_FALSE(tree.add(ip("10.0.1.5"), 4).address.own_node);
  EXPECT_TRUE(tree.add(ip("10.0.1.6"), 4).address.own_node);
}

TEST(NotedFilters, NumberedByTheKernelLeaveNode0Free) {
  AddressTree tree(imq_download);
  tree.note(0x00201000);
  tree.note(0x00405800);
  EXPECT_TRUE(tree.add(ip("10.0.1.5"), 4).address.own_node);
}

}  // namespace
}  // namespace quenby
