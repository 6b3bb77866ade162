#include <gtest/gtest.h>

#include "tc/qdisc.h"

namespace quenby {
namespace {

TEST(Pfifo, Holds11000PacketsUnlessTheSpeedIsZero) {
  for (const std::int64_t speed : {1, 125'000, -1, -2})
    EXPECT_EQ(pfifo_limit(speed), 11'000) << speed;
  EXPECT_EQ(pfifo_limit(0), 0);
}

TEST(Sfq, Holds127PacketsUnlessTheSpeedIsZero) {
  for (const std::int64_t speed : {1, 125'000, -1, -2}) EXPECT_EQ(sfq_limit(speed), 127) << speed;
  EXPECT_EQ(sfq_limit(0), 0);
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

TEST(Leaf, IsOfTheKindThatTheTariffNames) {
  ResolvedTariff t{5, {1'250'000, 1'250'000, 0}, kQdiscNone, {}};
  for (const int kind : {0, 4, -1}) {
    t.qdisc = kind;
    EXPECT_EQ(tariff_leaf(HandleScheme::mark, t), std::nullopt) << kind;
  }
  t.qdisc = kQdiscPfifo;
  EXPECT_EQ(tariff_leaf(HandleScheme::mark, t),
            (Qdisc{QdiscKind::pfifo, 0x80050000, 0x80000005, 11'000, 0, 0}));
  t.qdisc = kQdiscSfq;
  EXPECT_EQ(tariff_leaf(HandleScheme::imq_upload, t),
            (Qdisc{QdiscKind::sfq, 0xce250000, 0x80008005, 127, 0, 0}));
  t.qdisc = kQdiscFqCodel;
  EXPECT_EQ(tariff_leaf(HandleScheme::imq_download, t),
            (Qdisc{QdiscKind::fq_codel, 0x80050000, 0x80000005, 600, 300, 0}));
}

TEST(FqCodel, CountsWholeKilobits) {
  // 10,000.992 kbit/s
  EXPECT_EQ(default_leaf(HandleScheme::mark, 2, 1'250'124).limit, 600);
  EXPECT_EQ(default_leaf(HandleScheme::mark, 2, 1'250'125).limit, 800);
}

TEST(FqCodel, OfASpeedNeverSetIsThatOfZero) {
  EXPECT_EQ(plain_root(-2).limit, 0);
  EXPECT_EQ(plain_root(-2).quantum, 300U);
}

}  // namespace
}  // namespace quenby
