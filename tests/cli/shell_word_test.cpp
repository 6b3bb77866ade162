#include <gtest/gtest.h>
#include <string>

#include "cli/system.h"

namespace quenby {
namespace {

TEST(ShellWord, LeavesOrdinaryNamesAlone) {
  for (const char* name :
       {"", "eth0", "ppp0", "eth1.100", "br-lan", "wg_0", "veth0@if7", "eth0:1", "ABCXYZ",
        "enp0s31f6", "-o", "..", "abcdefghijklmnopqrstuvwxyz0123456789"}) {
    SCOPED_TRACE(name);
    EXPECT_EQ(shell_word(name), name);
  }
}

TEST(ShellWord, QuotesAnythingElse) {
  const struct {
    std::string text;
    std::string word;
  } rows[] = {
      {"a b", "'a b'"},
      {" ", "' '"},
      {"eth0;reboot", "'eth0;reboot'"},
      {"$(reboot)", "'$(reboot)'"},
      {"`reboot`", "'`reboot`'"},
      {"a\nb", "'a\nb'"},
      {"a\tb", "'a\tb'"},
      {"\"", "'\"'"},
      {"\\", "'\\'"},
      {"eth*", "'eth*'"},
      {"a/b", "'a/b'"},
      {"~", "'~'"},
      {"a=b", "'a=b'"},
      {"#", "'#'"},
      {"\xc3\xa9", "'\xc3\xa9'"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    EXPECT_EQ(shell_word(row.text), row.word);
  }
}

TEST(ShellWord, StepsOutOfTheQuotesForAQuote) {
  EXPECT_EQ(shell_word("'"), "''\\'''");
  EXPECT_EQ(shell_word("it's"), "'it'\\''s'");
  EXPECT_EQ(shell_word("''"), "''\\'''\\'''");
}

TEST(ShellWord, ReachesACommandAsOneUnchangedArgument) {
  for (const char* text :
       {"a b", "it's", "'; echo hacked; '", "$(echo hacked)", "`echo hacked`", "a\nb", "\\'", "*",
        "\"$HOME\"", "&& echo hacked", "!!", "a\\\nb", "-n"}) {
    SCOPED_TRACE(text);
    std::string out;
    _system("printf '%s|' x " + shell_word(text) + " y", out);
    EXPECT_EQ(out, "x|" + std::string(text) + "|y|");
  }
}

}  // namespace
}  // namespace quenby
