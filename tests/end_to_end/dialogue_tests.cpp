// The interactive configuration, answer by answer.

#include "fixture.h"
#include "terminal.h"

namespace {

using ::testing::ContainsRegex;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;

const std::string confirmation = "Is the above information correct?  (y/n): ";

// What a user answers for an external journal of 4 MiB.
const Answers usual_answers = {{"Path to meta database: ", "db"},
                               {"Journal type (default: internal): [i/e] ", "e"},
                               {"Path to journal: ", "db"},
                               {"Journal size [megabytes] (recommended: 8): ", "4"},
                               {confirmation, "y"},
                               {"Number of chains (recommended: 3): ", "2"},
                               {"Block size (recommended: 8192): ", "1024"},
                               {"Estimated number of checks (recommended: 1000): ", "1"},
                               {"Path to TSDB: ", "db"},
                               {confirmation, "yes"}};

class Dialogue : public EndToEnd {
 protected:
  // The question that begins so.
  static std::string question(const std::string& begin) {
    const auto asks = [&](const auto& step) { return step.first.starts_with(begin); };
    return std::ranges::find_if(usual_answers, asks)->first;
  }

  // Answers that question with `input`; the output begins where it is asked.
  Outcome answer(const std::string& begin, const std::string& input) const {
    std::string all_input;
    for (auto next = usual_answers.begin(); !next->first.starts_with(begin); ++next)
      all_input += next->second + "\n";
    Outcome outcome = run("-i", all_input + input);
    outcome.out.erase(0, outcome.out.find(begin));
    return outcome;
  }
};

TEST_F(Dialogue, SaysAllThatItShouldRefusesAnAnswerAndRepeatsTheHalfThatIsNotConfirmed) {
  write_file("file", "");
  const std::pair<std::string, std::string> dialogues[] = {
      {"db e db 16 no db e db 4 y\n2 1024 1 db n 2 2048 1 db yes",
       title + transcript("mdb_half", "16") + transcript("mdb_half", "4") + transcript("tsdb_half", "1024") +
           transcript("tsdb_half", "2048")},
      {"db/a path db/file db \n\n xEI e db/missing\n\ndb/file db 3 129 0 +8 y 1 6 5 "
       "512 32768 1023 16385 4294967295 3000 1025 16383 16384 0 +0 1 db/missing db/file db y",
       transcript("refusals")}};
  for (const auto& [input, output] : dialogues) {
    const Outcome outcome = run("-i -c", input);
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_EQ(outcome.out, output);
    remove_files();
  }
}

TEST_F(Dialogue, EndsWithItsInputOrBehindAWordThatIsNoNumber) {
  for (const auto& [asked, unused] : usual_answers) {
    if (asked == confirmation)
      continue;
    const Outcome outcome = answer(asked, "");
    EXPECT_EQ(outcome.status, 1) << asked;
    EXPECT_EQ(outcome.out + outcome.err, asked + no_answer);
  }
  for (const auto& [begin, refusal] : {std::pair("Journal size", "Please enter a number between 4 and 128\n"),
                                       {"Number of chains", "Please enter a number between 2 and 5\n"},
                                       {"Block size", "Please enter a number between 1024 and 16384\n"},
                                       {"Estimated", ""}}) {
    for (const std::string word : {"eight 8", "-8 8", "+ 8", "4294967296 8", "18446744073709551624 8"})
      EXPECT_EQ(answer(begin, word).out, question(begin) + refusal + question(begin)) << word;
  }
  EXPECT_THAT(answer("Estimated", "4294967295").out, EndsWith("Path to TSDB: "));
  // The type is one character: the next question finds the rest of the word.
  EXPECT_THAT(answer("Journal type", "i16").out, HasSubstr("Internal\nJournal size: 16 MiB\n"));
  // The end of input is a no.
  EXPECT_THAT(answer(confirmation, "").out, EndsWith("Path to meta database: "));
  EXPECT_TRUE(has_no_database());
}

TEST_F(Dialogue, MentionsAJournalFileThatExistsAndLeavesItAlone) {
  write_file("main.odbj", "precious");
  const Outcome outcome = answer("Path to journal", "db 4 y 2 1024 1 db y");
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.out, StartsWith("Path to journal: Path not a directory or block device\n\n"));
  EXPECT_EQ(outcome.err, "Unable to create file \"db\\main.odbj\"\n");
  EXPECT_EQ(file("main.odbj").size(), 8U);
}

TEST_F(Dialogue, IsHeldOnATerminalAndEndsAtTheKeyWhateverTheToolWaitsFor) {
  if (real::under_wine())
    GTEST_SKIP() << "Wine has no console on this terminal";
  const std::string control_c = "\x03", control_d = "\x04";
  const auto nothing = run_on_terminal("-d db", {{confirmation, control_d}});
  EXPECT_EQ(nothing.status, 0);
  EXPECT_THAT(nothing.out, EndsWith("ok - exising.\n\n"));
  const auto asked = run_on_terminal("-d db", {{"(y/n): ", control_c}});
  EXPECT_EQ(asked.status, 130);
  EXPECT_THAT(asked.out, EndsWith("\nInterrupted before a file was made\n"));
  EXPECT_TRUE(has_no_database());

  Answers answers = usual_answers;
  for (auto& [question, typed] : answers)
    typed += "\n";
  EXPECT_EQ(run_on_terminal("-i -c", answers).status, 0);
  EXPECT_TRUE(exists("main.tsdb"));
  remove_files();

  // A growth that takes its time shows how far it is.
  const auto growing =
      run_on_terminal("-i -f", {{"meta database: ", large + "\n"}, {growth, pause_it}, {" left", control_c}});
  EXPECT_EQ(growing.status, 130);
  EXPECT_THAT(growing.out,
              ContainsRegex("Initializing database\\.\\.\\.[0-9]+ %, [0-9]+\\.[0-9] ([KM]i)?B/s, "
                            "[0-9:]+[0-5][0-9] left"));
  EXPECT_THAT(growing.out, EndsWith("left behind: \"db\\main.odb\" \"db\\main.tsdb\"\n"));
}

}  // namespace
