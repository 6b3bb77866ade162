#include "tc/address_tree.h"

#include <arpa/inet.h>

#include <gtest/gtest.h>

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

TEST(AddressOffset, IsTheDestinationForDownloadAndTheSourceForUpload) {
  EXPECT_EQ(address_offset(imq_download), 16);
  EXPECT_EQ(address_offset(imq_upload), 12);
}

void expect_base_link(const U32Filter& link, int offset, unsigned node, unsigned table) {
  EXPECT_EQ(link.value, 0U);
  EXPECT_EQ(link.mask, 0U);
  EXPECT_EQ(link.offset, offset);
  EXPECT_EQ(link.table, 0U);
  EXPECT_EQ(link.bucket, 0U);
  EXPECT_EQ(link.node, node);
  EXPECT_TRUE(link.in_root_table());
  EXPECT_EQ(link.link_table, table);
  EXPECT_EQ(link.hash_mask, 0xff00U);
  EXPECT_EQ(link.hash_offset, static_cast<std::uint32_t>(offset));
  EXPECT_EQ(link.classid, 0U);
}

TEST(BaseLink, HashesTheThirdOctetFromTheRootTable) {
  expect_base_link(base_link(imq_download), 16, 1, 2);
  expect_base_link(base_link(imq_upload), 12, 2, 19);
}

TEST(AddressTree, MakesTableLinkAndFilterForTheFirstAddressOfADownloadBucket) {
  AddressTree tree(imq_download);
  const AddressFilters filters = tree.add(ip("10.0.1.5"), 7);
  // Third octet 1: bucket 1, table 2 + 1 + 1.
  ASSERT_TRUE(filters.table);
  EXPECT_EQ(filters.table->id, 4U);
  EXPECT_EQ(filters.table->buckets, 256U);
  ASSERT_TRUE(filters.link);
  EXPECT_EQ(filters.link->value, 0U);
  EXPECT_EQ(filters.link->mask, 0U);
  EXPECT_EQ(filters.link->offset, 16);
  EXPECT_EQ(filters.link->handle(), 0x00201000U);
  EXPECT_TRUE(filters.link->own_node);
  EXPECT_EQ(filters.link->link_table, 4U);
  EXPECT_EQ(filters.link->hash_mask, 0xffU);
  EXPECT_EQ(filters.link->hash_offset, 16U);
  EXPECT_EQ(filters.address.value, 0x0a000105U);
  EXPECT_EQ(filters.address.mask, 0xffffffffU);
  EXPECT_EQ(filters.address.offset, 16);
  EXPECT_EQ(filters.address.handle(), 0x00405000U);
  EXPECT_TRUE(filters.address.own_node);
  EXPECT_EQ(filters.address.link_table, 0U);
  EXPECT_EQ(filters.address.classid, 0x80000007U);
}

TEST(AddressTree, StartsWithTable20ForUploadAndMatchesTheSource) {
  AddressTree tree(imq_upload);
  const AddressFilters filters = tree.add(ip("10.0.0.9"), 5);
  ASSERT_TRUE(filters.table);
  EXPECT_EQ(filters.table->id, 20U);
  ASSERT_TRUE(filters.link);
  EXPECT_EQ(filters.link->table, 19U);
  EXPECT_EQ(filters.link->offset, 12);
  EXPECT_EQ(filters.link->hash_offset, 12U);
  EXPECT_EQ(filters.address.offset, 12);
  EXPECT_EQ(filters.address.table, 20U);
  EXPECT_EQ(filters.address.classid, 0x80008005U);
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

TEST(AddressTree, PutsTheFilterIntoTheBucketOfTheLastOctet) {
  for (const unsigned octet : {0U, 1U, 128U, 255U}) {
    SCOPED_TRACE(octet);
    AddressTree tree(imq_download);
    const AddressFilters filters = tree.add(htonl(0x0a000000 | octet), 4);
    EXPECT_EQ(filters.address.bucket, octet);
    EXPECT_EQ(filters.address.handle(), 0x00300000U | octet << 12);
    EXPECT_EQ(filters.address.value, 0x0a000000U | octet);
    EXPECT_TRUE(filters.address.own_node);
  }
}

TEST(AddressTree, MakesASharedBucketsTableOnce) {
  AddressTree tree(imq_download);
  const AddressFilters first = tree.add(ip("10.0.1.5"), 4);
  EXPECT_TRUE(first.table && first.link);
  const AddressFilters second = tree.add(ip("10.0.17.9"), 5);
  EXPECT_FALSE(second.table);
  EXPECT_FALSE(second.link);
  EXPECT_EQ(second.address.handle(), 0x00409000U);
  EXPECT_TRUE(second.address.own_node);
  EXPECT_EQ(second.address.classid, 0x80000005U);
}

TEST(AddressTree, LetsTheKernelNumberTheSecondFilterOfABucket) {
  AddressTree tree(imq_download);
  EXPECT_TRUE(tree.add(ip("10.0.1.5"), 4).address.own_node);
  const AddressFilters second = tree.add(ip("10.0.17.5"), 5);
  EXPECT_EQ(second.address.bucket, 5U);
  EXPECT_EQ(second.address.value, 0x0a001105U);
  EXPECT_FALSE(second.address.own_node);
  EXPECT_FALSE(tree.add(ip("192.168.33.5"), 6).address.own_node);
  EXPECT_TRUE(tree.add(ip("10.0.2.5"), 7).address.own_node);
}

TEST(AddressTree, LetsTheKernelNumberAnAddressThatComesTwice) {
  AddressTree tree(imq_upload);
  EXPECT_TRUE(tree.add(ip("10.0.0.0"), 4).address.own_node);
  EXPECT_FALSE(tree.add(ip("10.0.0.0"), 5).address.own_node);
}

TEST(AddressTree, KeepsDirectionsApart) {
  AddressTree down(imq_download);
  AddressTree up(imq_upload);
  EXPECT_TRUE(down.add(ip("10.0.1.5"), 4).table);
  EXPECT_TRUE(up.add(ip("10.0.1.5"), 4).table);
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
