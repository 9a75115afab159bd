// The interactive configuration, answer by answer.

#include "fixture.h"

namespace {

using ::testing::ContainsRegex;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;

const std::string no_answer = "Cannot read an answer from standard input\n";

const std::string mdb_path_question = "Path to meta database: ";
const std::string journal_type_question = "Journal type (default: internal): [i/e] ";
const std::string journal_path_question = "Path to journal: ";
const std::string journal_size_question = "Journal size [megabytes] (recommended: 8): ";
const std::string chains_question = "Number of chains (recommended: 3): ";
const std::string block_size_question = "Block size (recommended: 8192): ";
const std::string checks_question = "Estimated number of checks (recommended: 1000): ";
const std::string tsdb_path_question = "Path to TSDB: ";
const std::string confirmation = "Is the above information correct?  (y/n): ";

// What a user answers for an external journal of 4 MiB.
const tool::Answers usual_answers = {{mdb_path_question, "$"},      {journal_type_question, "e"},
                                     {journal_path_question, "$"},  {journal_size_question, "4"},
                                     {confirmation, "y"},           {chains_question, "2"},
                                     {block_size_question, "1024"}, {checks_question, "1"},
                                     {tsdb_path_question, "$"},     {confirmation, "yes"}};

class Dialogue : public EndToEnd {
 protected:
  // Answers `question` with `input`; the output begins where it is asked.
  tool::Outcome answer(const std::string& question, const std::string& input) const {
    std::string all_input;
    for (auto next = usual_answers.begin(); next->first != question; ++next)
      all_input += next->second + "\n";
    auto outcome = tool::run({"-i"}, text(all_input + input));
    outcome.out.erase(0, outcome.out.find(question));
    return outcome;
  }
};

TEST_F(Dialogue, SaysAllThatItShouldAndRepeatsTheHalfThatIsNotConfirmed) {
  const std::string input = "$ e $ 16 no $ e $ 4 y\n2 1024 1 $ n 2 2048 1 $ yes";
  const auto outcome = tool::run({"-i", "-c"}, text(input));
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(outcome.out, "Quenor Database Creation Tool\n---------------------------------------------\n" +
                             transcript("mdb_half", "16") + transcript("mdb_half", "4") +
                             transcript("tsdb_half", "1024") + transcript("tsdb_half", "2048"));
}

// Each refusal is said and the question is asked again, until the input ends.
TEST_F(Dialogue, RefusesAnAnswerAndAsksAgain) {
  struct Case {
    std::string question;
    std::string input;
    int refusals;
    std::string refusal;
  };
  const std::string sizes = "Please enter a number between 4 and 128\n";
  const std::string chains = "Please enter a number between 2 and 5\n";
  const std::string block_sizes = "Please enter a number between 1024 and 16384\n";
  const std::string place = "Please specify either a directory or a block-special\n";
  const std::string missing = "Cannot stat given path\n" + place;
  const std::string file = "Path not a directory or block device\n" + place;
  std::vector<Case> cases = {
      {mdb_path_question, "$/missing", 1, missing},
      {mdb_path_question, "$/file", 1, file},
      {mdb_path_question, "$/a path", 2, missing},  // two words
      {journal_path_question, "$/missing\n\n$/missing", 2, missing},
      {journal_path_question, "$/file", 1, file},
      {tsdb_path_question, "$/missing", 1, missing},
      {tsdb_path_question, "$/file $/file", 2, file},
      {journal_type_question, "\n\n xEI\n", 3, "Please enter either 'i' for internal or 'e' for external\n"},
      {journal_size_question, "3 129 0", 3, sizes},
      {chains_question, "1 6", 2, chains},
      {block_size_question, "512 32768 1023 16385 4294967295", 5, block_sizes},
      {block_size_question, "3000 1025 16383", 3, "Please enter a two-power\n"},
      {checks_question, "0 +0", 2, ""},
  };
  for (const auto& [question, unused] : usual_answers) {
    if (question != confirmation)
      cases.push_back({question, "", 0, ""});
  }
  // A text that is no number is refused, and nothing is read after it.
  for (const std::string text : {"eight 8", "-8 8", "+ 8", "4294967296 8", "18446744073709551624 8"}) {
    cases.push_back({journal_size_question, text, 1, sizes});
    cases.push_back({chains_question, text, 1, chains});
    cases.push_back({block_size_question, text, 1, block_sizes});
    cases.push_back({checks_question, text, 1, ""});
  }
  write_file("file", "");
  for (const auto& [question, input, refusals, refusal] : cases) {
    SCOPED_TRACE(question + input);
    std::string expected = question;
    for (int i = 0; i < refusals; ++i)
      expected += refusal + question;
    const auto outcome = answer(question, input);
    ASSERT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, expected);
    EXPECT_EQ(outcome.err, no_answer);
    EXPECT_TRUE(has_no_database());
  }
}

TEST_F(Dialogue, GoesOnAfterAnAcceptedAnswer) {
  const tool::Answers sizes = {{journal_size_question, "128"}, {journal_size_question, "+8"},
                               {chains_question, "5"},         {block_size_question, "16384"},
                               {checks_question, "1"},         {checks_question, "4294967295"}};
  for (const auto& [question, size] : sizes)
    EXPECT_THAT(answer(question, size).out, StartsWith(question + "\n")) << size;
  // The type is one character: the next question finds the rest of the word.
  EXPECT_THAT(answer(journal_type_question, "i16").out, HasSubstr("Internal\nJournal size: 16 MiB\n"));
  // The end of input is a no.
  EXPECT_THAT(answer(confirmation, "").out, EndsWith(mdb_path_question));
}

TEST_F(Dialogue, MentionsAJournalFileThatExistsAndLeavesItAlone) {
  write_file("main.odbj", "precious");
  const auto outcome = answer(journal_path_question, "$ 4 y 2 1024 1 $ y");
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.out, StartsWith(journal_path_question + "Path not a directory or block device\n\n"));
  EXPECT_EQ(outcome.err, text("Unable to create file \"$\\main.odbj\"\n"));
  EXPECT_EQ(file("main.odbj").size(), 8U);
}

TEST_F(Dialogue, IsHeldOnATerminalAndEndsAtTheKeyWhateverTheToolWaitsFor) {
  if (tool::is_windows_program())
    GTEST_SKIP() << "Wine has no console on this terminal";
  const std::string control_c = "\x03", control_d = "\x04";
  const auto nothing = tool::run_on_terminal(texts({"-d", "$"}), {{confirmation, control_d}});
  EXPECT_EQ(nothing.status, 0);
  EXPECT_THAT(nothing.out, EndsWith("ok - exising.\n\n"));
  const auto asked = tool::run_on_terminal(texts({"-d", "$"}), {{"(y/n): ", control_c}});
  EXPECT_EQ(asked.status, 130);
  EXPECT_THAT(asked.out, EndsWith("\nInterrupted before a file was made\n"));
  EXPECT_TRUE(has_no_database());

  tool::Answers answers = usual_answers;
  for (auto& [question, typed] : answers)
    typed = text(typed + "\n");
  EXPECT_EQ(tool::run_on_terminal({"-i", "-c"}, answers).status, 0);
  EXPECT_TRUE(exists("main.tsdb"));
  remove_files();

  // A growth that takes its time shows how far it is.
  const auto growing = tool::run_on_terminal(
      {"-i", "-f"}, {{mdb_path_question, text(large) + "\n"}, {growth, tool::pause}, {" left", control_c}});
  EXPECT_EQ(growing.status, 130);
  EXPECT_THAT(growing.out,
              ContainsRegex("Initializing database\\.\\.\\.[0-9]+ %, [0-9]+\\.[0-9] ([KM]i)?B/s, "
                            "[0-9:]+[0-5][0-9] left"));
  EXPECT_THAT(growing.out, EndsWith(text("left behind: \"$\\main.odb\" \"$\\main.tsdb\"\n")));
}

}  // namespace
