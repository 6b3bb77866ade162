#include "cli/options.h"

#include <gmock/gmock.h>

#include "tests/manual/source_text.h"

// The manual page and the completion files have the options that the program has.
namespace quenby {
namespace {

using ::testing::UnorderedElementsAreArray;

// Name and whether it takes an argument.
using Options = std::vector<std::pair<std::string, bool>>;

Options program_options() {
  Options options;
  for (const option& entry : option_table()) {
    if (entry.name != nullptr) options.emplace_back(entry.name, entry.has_arg == required_argument);
  }
  return options;
}

// Each line's groups are the name and what stands there for an argument, empty for none.
Options listed_options(const std::vector<std::string>& lines, const std::string& pattern) {
  Options options;
  for (const std::vector<std::string>& groups : test::matches(lines, pattern))
    options.emplace_back(groups.at(0), !groups.at(1).empty());
  return options;
}

TEST(ListedOptions, OfTheManualPage) {
  EXPECT_THAT(listed_options(test::part_of_page("docs/man/quenby.8", ".Sh OPTIONS", {".Sh"}),
                             "\\.It Fl -(\\S+)( Ar \\S+)?"),
              UnorderedElementsAreArray(program_options()));
}

TEST(ListedOptions, OfTheBashCompletion) {
  EXPECT_THAT(listed_options(test::source_lines("completion/quenby.bash"),
                             " +--([a-z-]+):(file|tariff|interface)?( \\\\)?"),
              UnorderedElementsAreArray(program_options()));
}

TEST(ListedOptions, OfTheZshCompletion) {
  EXPECT_THAT(listed_options(test::source_lines("completion/_quenby"),
                             " +'\\*--([a-z-]+)(=?)\\[[^\\]]+\\].*"),
              UnorderedElementsAreArray(program_options()));
}

TEST(ListedOptions, OfTheZshCompletionSayWhatAnArgumentIs) {
  const auto lines = test::source_lines("completion/_quenby");
  const Options described =
      listed_options(lines, " +'\\*--([a-z-]+)=\\[[^\\]]+\\](:[a-z ]+:_[a-z_]+)'.*");
  const auto with_argument = [](const Options& all) {
    return std::count_if(all.begin(), all.end(), [](const auto& entry) { return entry.second; });
  };
  EXPECT_EQ(with_argument(described), with_argument(program_options()));
}

}  // namespace
}  // namespace quenby
