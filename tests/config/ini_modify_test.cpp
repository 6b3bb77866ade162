#include "tests/config/ini_fixture.h"

// Copying a file without some of its sections.
namespace quenby {
namespace {

using test::read_file;
using test::set_of;
using test::tariff;
using test::write_file;

class IniModify : public test::IniFile {
 protected:
  bool modify(const std::string& text, const TariffSet& dropped) {
    write_file(path(), text);
    return TariffIniFile(path(), true).modify_ini(dropped, out());
  }
  // What `modify` made of `text`.
  std::string modified(const std::string& text, const TariffSet& dropped) {
    EXPECT_TRUE(modify(text, dropped));
    return read_file(out());
  }
  std::string out() const { return scratch().file("out.ini"); }
};

TEST_F(IniModify, DropsTheNamedSections) {
  EXPECT_EQ(modified("[a]\nid=4\n[b]\nid=5\nip=10.0.0.1\n[c]\nid=6\n", set_of(tariff("b"))),
            "[a]\nid=4\n[c]\nid=6\n");
  EXPECT_EQ(modified("[a]\nid=4\n[b]\nid=5\n[a]\nid=6\n", set_of(tariff("a"))), "[b]\nid=5\n");
}

TEST_F(IniModify, DropsEverythingWhenEverySectionIsNamed) {
  EXPECT_EQ(modified("[a]\nid=4\n\n[b]\n", set_of(tariff("a"), tariff("b"))), "");
}

TEST_F(IniModify, CopiesAFileThatHasNoneOfThem) {
  const std::string text = "[a]\nid=4\n[b]\nip=10.0.0.1\n";
  EXPECT_EQ(modified(text, set_of(tariff("c"), tariff("d"))), text);
  EXPECT_EQ(modified(text, TariffSet()), text);
  EXPECT_EQ(modified("", set_of(tariff("a"))), "");
}

TEST_F(IniModify, DropsBlankLinesAndStripsTheRest) {
  EXPECT_EQ(modified("\n\n  [  a  ]  ; text\r\n\n\t id = 4 \r\n \n[b]x\nid=5", TariffSet()),
            "[a]\nid = 4\n[b]\nid=5\n");
}

TEST_F(IniModify, KeepsLinesAboveTheFirstHeaderAndLinesWithoutMeaning) {
  EXPECT_EQ(modified("; text\nkey\n[a]\n# text\n[b]\n", set_of(tariff("b"))),
            "; text\nkey\n[a]\n# text\n");
}

TEST_F(IniModify, WantsTheExactName) {
  EXPECT_EQ(modified("[A]\n[ab]\n[a]\n[a b]\n", set_of(tariff("a"))), "[A]\n[ab]\n[a b]\n");
}

TEST_F(IniModify, FailsAtAMalformedHeader) {
  EXPECT_FALSE(modify("[a]\nid=4\n[\n", TariffSet()));
  EXPECT_FALSE(modify("[]\n", TariffSet()));
  EXPECT_FALSE(modify("[b]\n[ ]\n", set_of(tariff("b"))));
}

TEST_F(IniModify, FailsWhenAFileCannotBeOpened) {
  EXPECT_FALSE(TariffIniFile(scratch().file("missing"), true).modify_ini(TariffSet(), out()));
  write_file(path(), "[a]\n");
  EXPECT_FALSE(TariffIniFile(path(), true).modify_ini(TariffSet(), scratch().file("no/such")));
}

TEST_F(IniModify, FailsWhenTheFileCannotBeRead) {
  for (const char* path : {"/proc/self/mem", "/", "/dev/null"})
    EXPECT_FALSE(TariffIniFile(path, false).modify_ini(TariffSet(), out())) << path;
}

TEST_F(IniModify, FailsWhenTheDiskIsFull) {
  write_file(path(), "[a]\nid=4\n");
  EXPECT_FALSE(TariffIniFile(path(), true).modify_ini(TariffSet(), "/dev/full"));
}

TEST_F(IniModify, ReplacesWhatWasAtTheTarget) {
  write_file(out(), std::string(10'000, 'x'));
  EXPECT_EQ(modified("[a]\n", TariffSet()), "[a]\n");
}

}  // namespace
}  // namespace quenby
