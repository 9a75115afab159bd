// A growth that takes its time, and one that is interrupted.

#include "fixture.h"

namespace {

using ::testing::ContainsRegex;
using ::testing::EndsWith;
using ::testing::HasSubstr;

// Answers for 128 MiB in the smallest blocks, which are not written before anybody can look.
const std::string large = "$ i 4 2 1024 128 $ ";

// What is to be seen of a text in which the cursor goes back.
std::string seen(const std::string& text) {
  std::string line, all;
  std::size_t cursor = 0;
  for (const char c : text) {
    if (c == '\b') {
      cursor -= 1;
    } else if (c == '\n') {
      all += line.substr(0, line.find_last_not_of(' ') + 1) + c;
      line.clear();
      cursor = 0;
    } else {
      line.resize(std::max(line.size(), cursor + 1), ' ');
      line[cursor++] = c;
    }
  }
  return all + line;
}

using Growth = EndToEnd;

TEST_F(Growth, ShowsOnATerminalAloneHowFarItIs) {
  if (tool::is_windows_program())
    GTEST_SKIP() << "Wine has no console on this terminal";
  const tool::Answers answers = {{"meta database: ", text(large) + "\n"}, {tool::growth, tool::pause}};
  const auto paused = tool::run_on_terminal({"-i", "-f", "-c"}, answers);
  EXPECT_EQ(paused.status, 0);
  EXPECT_THAT(paused.out, ContainsRegex("Initializing database\\.\\.\\."
                                        "[0-9]+ %, [0-9]+\\.[0-9] ([KM]i)?B/s, [0-9:]+[0-5][0-9] left *\b"));
  EXPECT_THAT(seen(paused.out), HasSubstr("\nInitializing database...ok.\nWriting header...ok.\n"));
}

TEST_F(Growth, EndsAtOnceWhenItIsInterruptedAndNamesWhatItLeaves) {
  using tool::Trouble;
  const std::string last_words = "\nInterrupted, left behind: \"$\\main.odb\" \"$\\main.tsdb\"\n";
  for (const auto& [trouble, status] :
       {std::pair(Trouble::interrupt_during_growth, 130), {Trouble::termination_during_growth, 143}}) {
    if (tool::is_windows_program() && trouble != Trouble::interrupt_during_growth)
      continue;
    const auto outcome = tool::run({"-i", "-f"}, text(large), trouble);
    EXPECT_EQ(outcome.status, status);
    EXPECT_THAT(outcome.err, EndsWith(text(tool::growth + last_words)));
    EXPECT_THAT(outcome.out, EndsWith("(y/n): y\n")) << "nothing that was said is lost";
    EXPECT_LT(file("main.tsdb").size(), 128U << 20);
    EXPECT_FALSE(exists("main.odbj"));
    remove_files();
  }
}

TEST_F(Growth, EndsAtTheKeyOnATerminalWhateverTheToolWaitsFor) {
  if (tool::is_windows_program())
    GTEST_SKIP() << "Wine has no console on this terminal";
  const std::string control_c = "\x03";
  const auto asked = tool::run_on_terminal(texts({"-d", "$"}), {{"(y/n): ", control_c}});
  EXPECT_EQ(asked.status, 130);
  EXPECT_THAT(asked.out, EndsWith("\nInterrupted before a file was made\n"));
  EXPECT_TRUE(has_no_database());

  const auto growing = tool::run_on_terminal(
      {"-i", "-f"}, {{"meta database: ", text(large) + "\n"}, {tool::growth, control_c}});
  EXPECT_EQ(growing.status, 130);
  EXPECT_THAT(growing.out, EndsWith(text("left behind: \"$\\main.odb\" \"$\\main.tsdb\"\n")));
}

}  // namespace
