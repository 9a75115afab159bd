// What the tool says and does with its arguments, before and instead of creating anything.

#include "fixture.h"

namespace {

using ::testing::EndsWith;
using ::testing::StartsWith;

const std::string placement = "placement path: \"db\"\n";

using CommandLine = EndToEnd;

TEST_F(CommandLine, IsCheckedWordByWordBeforeAnythingIsCreated) {
  write_file("file", "");
  const std::string usage = transcript("usage");
  const std::string unknown = "Unknown or misplaced argument: ";
  const std::string not_found = "Cannot stat given path\n";
  const std::string overruled =
      "You gave a destination path, but also asked to be \n"
      "asked about everything...  I will ask you about everything then.\n";
  struct Case {
    std::string arguments;
    int status;
    std::string out;  // its end
    std::string err;
  };
  const Case cases[] = {
      {"-c -n -force", 0, title, usage},
      {"-d", 0, title, usage},  // without a path it counts as not given
      {"-h -d db -nonsense nonsense", 0, title, usage},
      {"-d db -f -help", 0, title, placement + usage},
      {"-x -h", 1, title, unknown + "\"-x\"\n"},
      {"'*'", 1, title, unknown + "\"*\"\n"},
      {"-d db/missing nonsense", 1, title + not_found, "Cannot stat path \"db/missing\"\n"},
      {"-d ''", 1, title + not_found, "Cannot stat path \"\"\n"},
      {"-ddb", 1, title + not_found, "Cannot stat path \"-ddb\"\n"},
      {"-d db/file", 1, "Path not a directory or block device\n", "Cannot stat path \"db/file\"\n"},
      {"-d db -i", 1, "Path to meta database: ", placement + overruled + no_answer},
  };
  for (const auto& [arguments, status, out, err] : cases) {
    const Outcome outcome = run(arguments);
    SCOPED_TRACE(arguments);
    EXPECT_EQ(outcome.status, status);
    EXPECT_THAT(outcome.out, AllOf(StartsWith(title), EndsWith(out)));
    EXPECT_EQ(outcome.err, err);
    EXPECT_TRUE(has_no_database());
  }
}

TEST_F(CommandLine, TakesTheLastOfSeveralPaths) {
  std::filesystem::create_directory("last");
  // An option is told by its first two characters, and a last one without a path changes nothing.
  const Outcome outcome = run("-d db -d last -force -cn -d");
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_THAT(outcome.err, StartsWith(placement + "placement path: \"last\"\n"));
  EXPECT_TRUE(std::filesystem::exists("last/main.odb"));
  EXPECT_TRUE(has_no_database());
}

TEST_F(CommandLine, AsksOnceBeforeItCreatesTheDefaults) {
  const std::string summaries = title + transcript("defaults");
  for (const std::string answer : {"", "n\n", "Y\n", "yess\n", "\n \n", "ye"}) {
    const Outcome outcome = run("-d db", answer);
    EXPECT_EQ(outcome.status, 0) << answer;
    EXPECT_EQ(outcome.out, summaries) << answer;
    EXPECT_EQ(outcome.err, placement + "ok - exising.\n\n") << answer;
    EXPECT_TRUE(has_no_database()) << answer;
  }
  for (const std::string answer : {"y", "yes\nno\n", " \n\t y "}) {
    EXPECT_EQ(run("-d db -c", answer).out, summaries) << answer;
    EXPECT_TRUE(exists("main.tsdb")) << answer;
    remove_files();
  }
  EXPECT_EQ(run("-d db -c -f").out, summaries + "y\n");
}

TEST_F(CommandLine, IsNotEndedByASignalWhenAFileOrItsOutputTakesNoMore) {
  if (real::under_wine())
    GTEST_SKIP() << "Windows has no such signals";
  const Outcome too_large = run("-d db -f", "", "ulimit -f 2000; ");
  EXPECT_EQ(too_large.status, 1);
  EXPECT_THAT(too_large.err, EndsWith("Unable to write to \"db\\main.odb\"\n"));
  remove_files();
  EXPECT_EQ(run("-d db -f >&4", "", "mkfifo p; exec 3<>p 4>p 3<&-; ").status, 0) << "nobody reads";
}

TEST_F(CommandLine, EndsAtOnceWhenItIsInterruptedAndNamesWhatItLeaves) {
  for (const auto& [signal, status] : {std::pair(SIGINT, 130), {SIGTERM, 143}}) {
    if (real::under_wine() && signal != SIGINT)
      continue;
    real::Program tool(real::createdb, "-i -f", large);
    EXPECT_TRUE(tool.shows(growth));
    const Outcome outcome = tool.end_with(signal);
    EXPECT_EQ(outcome.status, status);
    EXPECT_THAT(outcome.err,
                EndsWith(growth + "\nInterrupted, left behind: \"db\\main.odb\" \"db\\main.tsdb\"\n"));
    EXPECT_THAT(outcome.out, EndsWith("(y/n): y\n")) << "nothing that was said is lost";
    EXPECT_LT(file("main.tsdb").size(), 128U << 20);
    EXPECT_FALSE(exists("main.odbj"));
    remove_files();
  }
}

}  // namespace
