#include <netlink/route/qdisc/fifo.h>
#include <netlink/route/qdisc/fq_codel.h>
#include <netlink/route/qdisc/sfq.h>

#include <gtest/gtest.h>

#include "model/global_settings.h"
#include "tc/fq_codel.h"
#include "tc/nl_types.h"
#include "tc/pfifo.h"
#include "tc/sfq.h"

namespace quenby {
namespace {

GlobalDirSettings with_speed(std::int64_t bytes_per_second) {
  GlobalDirSettings settings(true);
  settings.speed = bytes_per_second;
  return settings;
}

QdiscPtr qdisc_of(const char* kind) {
  QdiscPtr qdisc(rtnl_qdisc_alloc());
  EXPECT_EQ(rtnl_tc_set_kind(TC_CAST(qdisc.get()), kind), 0);
  return qdisc;
}

TEST(Pfifo, Holds11000PacketsUnlessTheSpeedIsZero) {
  for (const std::int64_t speed : {1, 125'000, -1, -2})
    EXPECT_EQ(pfifo_limit(with_speed(speed)), 11'000) << speed;
  EXPECT_EQ(pfifo_limit(with_speed(0)), 0);
}

TEST(Pfifo, PutsTheLimitIntoTheQdisc) {
  const QdiscPtr qdisc = qdisc_of("pfifo");
  set_pfifo(with_speed(125), qdisc.get());
  EXPECT_EQ(rtnl_qdisc_fifo_get_limit(qdisc.get()), 11'000);
}

TEST(Sfq, Holds127PacketsUnlessTheSpeedIsZero) {
  for (const std::int64_t speed : {1, 125'000, -1, -2})
    EXPECT_EQ(sfq_limit(with_speed(speed)), 127) << speed;
  EXPECT_EQ(sfq_limit(with_speed(0)), 0);
}

TEST(Sfq, PutsTheLimitIntoTheQdisc) {
  const QdiscPtr qdisc = qdisc_of("sfq");
  set_sfq(with_speed(125), qdisc.get());
  EXPECT_EQ(rtnl_sfq_get_limit(qdisc.get()), 127);
}

TEST(FqCodel, GrowsWithTheSpeed) {
  const struct {
    std::int64_t kbps;
    int limit;
    unsigned quantum;
  } rows[] = {
      {-1, 0, 0},
      {-9'000'000'000, 0, 0},
      {0, 0, 300},
      {1, 600, 300},
      {10'000, 600, 300},
      {10'001, 800, 300},
      {100'000, 800, 300},
      {100'001, 1200, 1514},
      {1'000'000, 1200, 1514},
      {1'000'001, 10'240, 1514},
      {4'294'967'295, 10'240, 1514},
      {4'294'967'296, 10'240, 1514},
      {4'294'967'297, 10'240, 1514},
      {9'000'000'000'000'000'000, 10'240, 1514},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.kbps);
    EXPECT_EQ(fq_codel_values(row.kbps).limit, row.limit);
    EXPECT_EQ(fq_codel_values(row.kbps).quantum, row.quantum);
  }
}

TEST(FqCodel, PutsLimitQuantumAndNoEcnIntoTheQdisc) {
  const QdiscPtr qdisc = qdisc_of("fq_codel");
  // 12,500,125 bytes/s are 100,001 kbit/s.
  set_fq_codel(with_speed(12'500'125), qdisc.get());
  EXPECT_EQ(rtnl_qdisc_fq_codel_get_limit(qdisc.get()), 1200);
  EXPECT_EQ(rtnl_qdisc_fq_codel_get_quantum(qdisc.get()), 1514U);
  EXPECT_EQ(rtnl_qdisc_fq_codel_get_ecn(qdisc.get()), 0);
}

TEST(FqCodel, CountsWholeKilobits) {
  const QdiscPtr qdisc = qdisc_of("fq_codel");
  // 10,000.992 kbit/s
  set_fq_codel(with_speed(1'250'124), qdisc.get());
  EXPECT_EQ(rtnl_qdisc_fq_codel_get_limit(qdisc.get()), 600);
  set_fq_codel(with_speed(1'250'125), qdisc.get());
  EXPECT_EQ(rtnl_qdisc_fq_codel_get_limit(qdisc.get()), 800);
}

TEST(FqCodel, OfASpeedNeverSetIsThatOfZero) {
  const QdiscPtr qdisc = qdisc_of("fq_codel");
  set_fq_codel(with_speed(-2), qdisc.get());
  EXPECT_EQ(rtnl_qdisc_fq_codel_get_limit(qdisc.get()), 0);
  EXPECT_EQ(rtnl_qdisc_fq_codel_get_quantum(qdisc.get()), 300U);
}

}  // namespace
}  // namespace quenby
