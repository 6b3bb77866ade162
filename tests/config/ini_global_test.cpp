#include "tests/config/ini_fixture.h"

// The global file.
namespace quenby {
namespace {

using IniGlobal = test::IniFile;

TEST_F(IniGlobal, BothSectionsAreRead) {
  GlobalSet set;
  EXPECT_TRUE(
      parse("[global]\n"
            "download_speed=100000\n"
            "upload_speed=1.5\n"
            "wan=eth1\n"
            "enabled=true\n"
            "[defaultqosipqueue]\n"
            "download_speed=2000\n"
            "upload_speed=letters\n",
            set));
  EXPECT_TRUE(set.has_global);
  EXPECT_EQ(set.global.download.speed, 12'500'000);
  EXPECT_EQ(set.global.upload.speed, 187);
  EXPECT_EQ(set.global.wan, "eth1");
  EXPECT_TRUE(set.global.enabled);
  EXPECT_TRUE(set.has_default);
  EXPECT_EQ(set.defaults.download.speed, 250'000);
  EXPECT_EQ(set.defaults.download.ceiling, 250'000);
  EXPECT_EQ(set.defaults.upload.speed, -1);
  EXPECT_EQ(set.defaults.upload.ceiling, -1);
}

TEST_F(IniGlobal, WithoutAnEnabledLineIsDisabled) {
  GlobalSet set;
  EXPECT_TRUE(parse("[global]\nwan=eth1\n", set));
  EXPECT_FALSE(set.global.enabled);
  EXPECT_EQ(written(set), "[global]\nwan=eth1\nenabled=false\n");
}

TEST_F(IniGlobal, WithoutAGlobalSectionStaysEnabled) {
  GlobalSet set;
  EXPECT_TRUE(parse("[defaultqosipqueue]\ndownload_speed=0\n", set));
  EXPECT_TRUE(set.global.enabled);
  EXPECT_FALSE(set.has_global);
  EXPECT_TRUE(set.has_default);
  EXPECT_EQ(set.defaults.download.speed, 0);
  EXPECT_EQ(set.defaults.upload.speed, -2);
}

TEST_F(IniGlobal, ARepeatedSectionStartsAgain) {
  GlobalSet set;
  EXPECT_TRUE(
      parse("[global]\ndownload_speed=1000\nwan=eth1\nenabled=true\n"
            "[defaultqosipqueue]\ndownload_speed=500\n"
            "[global]\nupload_speed=8\n[defaultqosipqueue]\n",
            set));
  EXPECT_EQ(set.global.download.speed, -2);
  EXPECT_EQ(set.global.upload.speed, 1000);
  EXPECT_EQ(set.global.wan, "");
  EXPECT_FALSE(set.global.enabled);
  EXPECT_EQ(set.defaults.download.speed, -2);
  EXPECT_EQ(set.defaults.download.ceiling, 0);
}

TEST_F(IniGlobal, ARepeatedKeyAppliesAgain) {
  GlobalSet set;
  EXPECT_TRUE(parse("[global]\nwan=eth1\nwan=eth2\ndownload_speed=8\ndownload_speed=16\n", set));
  EXPECT_EQ(set.global.wan, "eth2");
  EXPECT_EQ(set.global.download.speed, 2000);
}

TEST_F(IniGlobal, OtherSectionsAndKeysAreRefused) {
  for (const char* text :
       {"[tariff]\n", "[Global]\n", "[GLOBAL]\n", "[globals]\n", "[defaultQoSIPQueue]\n",
        "[defaultqosipqueue]\nwan=eth1\n", "[defaultqosipqueue]\nenabled=true\n",
        "[global]\nip=10.0.0.1\n", "[global]\nid=4\n", "[global]\ndownload_burst_rate=1\n",
        "[global]\naggregation=1\n", "[global]\nceiling=1\n", "[defaultqosipqueue]\nid=3\n"}) {
    SCOPED_TRACE(text);
    GlobalSet set;
    EXPECT_FALSE(parse(text, set));
  }
}

TEST_F(IniGlobal, RefusedValuesAreFailures) {
  for (const char* line : {"enabled=TRUE", "enabled=yes", "enabled=1", "download_speed=1e300",
                           "upload_speed=inf", "download_speed=nan", "upload_speed=1e16"}) {
    SCOPED_TRACE(line);
    GlobalSet set;
    EXPECT_FALSE(parse("[global]\n" + std::string(line) + "\nwan=eth1\n", set));
    EXPECT_EQ(set.global.wan, "");
    EXPECT_EQ(set.global.download.speed, -2);
  }
  GlobalSet set;
  EXPECT_FALSE(parse("[defaultqosipqueue]\ndownload_speed=1000\nupload_speed=1e300\n", set));
  EXPECT_EQ(set.defaults.download.ceiling, 125'000);
  EXPECT_EQ(set.defaults.upload.ceiling, 0);
}

TEST_F(IniGlobal, AKeyOutsideItsSectionIsRefused) {
  GlobalSet set;
  EXPECT_FALSE(set.onKey("global", "wan", "eth1"));
  EXPECT_TRUE(set.onSection("global"));
  EXPECT_FALSE(set.onKey("defaultqosipqueue", "download_speed", "1"));
  EXPECT_TRUE(set.onKey("global", "wan", "eth1"));
  EXPECT_TRUE(set.endSection());
  EXPECT_FALSE(set.onKey("global", "wan", "eth2"));
  EXPECT_EQ(set.global.wan, "eth1");
}

TEST_F(IniGlobal, WrittenAndReadAgainIsTheSame) {
  for (const char* text :
       {"[global]\ndownload_speed=100000\nupload_speed=0\nwan=eth1\nenabled=true\n"
        "[defaultqosipqueue]\ndownload_speed=2000\nupload_speed=-1\n",
        "[global]\nenabled=false\n", "[global]\nwan=x y\nenabled=true\n[defaultqosipqueue]\n",
        "[global]\nupload_speed=-1\nenabled=true\n[defaultqosipqueue]\nupload_speed=7\n"}) {
    SCOPED_TRACE(text);
    GlobalSet first;
    EXPECT_TRUE(parse(text, first));
    EXPECT_EQ(written(first), text);
    GlobalSet second;
    EXPECT_TRUE(parse(written(first), second));
    EXPECT_TRUE(second.global == first.global);
    EXPECT_TRUE(second.defaults == first.defaults);
    EXPECT_EQ(second.has_default, first.has_default);
  }
}

}  // namespace
}  // namespace quenby
