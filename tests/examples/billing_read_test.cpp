#include <cstdlib>

#include "config/tariff_ini_file.h"
#include "model/tariff_config_base.h"
#include "tests/support/files.h"

// The program takes what examples/billing.py makes, and takes every name for what it was.
namespace quenby {
namespace {

const std::string kExamples = std::string(QUENBY_SOURCE_DIR) + "/examples/";

std::string quoted(const std::string& text) { return "'" + text + "'"; }

// The exit status of the script for a list in CSV.
int run_billing(const std::string& output, const std::string& csv) {
  const std::string command = "python3 -B " + quoted(kExamples + "billing.py") + " " +
                              quoted(output) + " csv " + quoted(csv);
  return std::system(command.c_str());
}

// What --update would read.
TariffSet read(const std::string& path) {
  TariffSet tariffs;
  EXPECT_TRUE(TariffIniFile(path, true).parse_ini(tariffs));
  return tariffs;
}

TEST(Billing, TheExampleIsRead) {
  const test::ScratchDirectory directory;
  const std::string output = directory.file("tariffs.ini");
  ASSERT_EQ(run_billing(output, kExamples + "subscribers.csv"), 0);
  const TariffSet set = read(output);
  ASSERT_EQ(set.tariffs().size(), 3U);
  const TariffSettings& miller = set.tariffs().at(1);
  EXPECT_EQ(miller.name, "4712 Miller");
  EXPECT_EQ(miller.addresses.size(), 3U);
  EXPECT_EQ(miller.prefixes.size(), 1U);
  EXPECT_EQ(miller.download.speed, 625'000);
  EXPECT_EQ(miller.upload.speed, 375'000);
}

TEST(Billing, EveryPossibleCharacterOfANameComesBack) {
  const std::string name =
      "0123456789 abcdefghijklmnopqrstuvwxyz ABCDEFGHIJKLMNOPQRSTUVWXYZ ._:@/+#()- z";
  const test::ScratchDirectory directory;
  const std::string output = directory.file("tariffs.ini");
  test::write_file(directory.file("list.csv"), "name,ip,download_speed,upload_speed\n" + name +
                                                   ",10.0.0.1,34359738,34359738\n");
  ASSERT_EQ(run_billing(output, directory.file("list.csv")), 0);
  const TariffSet set = read(output);
  ASSERT_EQ(set.tariffs().size(), 1U);
  EXPECT_EQ(set.tariffs().at(0).name, name);
  EXPECT_EQ(set.tariffs().at(0).download.speed, 4'294'967'250);
}

}  // namespace
}  // namespace quenby
