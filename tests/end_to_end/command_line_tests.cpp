// What the tool says and does with its arguments, before and instead of creating anything.

#include "fixture.h"

namespace {

using ::testing::EndsWith;
using ::testing::StartsWith;

const std::string title =
    "Quenor Database Creation Tool\n"
    "---------------------------------------------\n";

const std::string placement = "placement path: \"$\"\n";

using CommandLine = EndToEnd;

TEST_F(CommandLine, IsCheckedWordByWordBeforeAnythingIsCreated) {
  write_file("file", "");
  const std::string usage = transcript("usage");
  const std::string unknown = "Unknown or misplaced argument: ";
  const std::string not_found = "Cannot stat given path\n";
  const std::string no_missing = "Cannot stat path \"$/missing\"\n";
  const std::string overruled =
      "You gave a destination path, but also asked to be \n"
      "asked about everything...  I will ask you about everything then.\n";
  struct Case {
    tool::Arguments arguments;
    int status;
    std::string out;  // its end
    std::string err;
  };
  const Case cases[] = {
      {{}, 0, title, usage},
      {{"-c", "-n", "-force"}, 0, title, usage},
      {{"-d"}, 0, title, usage},  // without a path it counts as not given
      {{"-h", "-d", "$", "-nonsense", "nonsense"}, 0, title, usage},
      {{"-d", "$", "-f", "-help"}, 0, title, placement + usage},
      {{"-x", "-h"}, 1, title, unknown + "\"-x\"\n"},
      {{"-", "-h"}, 1, title, unknown + "\"-\"\n"},
      {{"--help"}, 1, title, unknown + "\"--help\"\n"},
      {{"*"}, 1, title, unknown + "\"*\"\n"},
      {{"-f", "$"}, 1, title, unknown + "\"$\"\n"},
      {{"-d", "$/missing", "nonsense"}, 1, title + not_found, no_missing},
      {{"-d", "$", "-d", "$/missing"}, 1, title + not_found, placement + no_missing},
      {{"-d", ""}, 1, title + not_found, "Cannot stat path \"\"\n"},
      {{"-d$"}, 1, title + not_found, "Cannot stat path \"-d$\"\n"},
      {{"-d", "$/file"},
       1,
       title + "Path not a directory or block device\n",
       "Cannot stat path \"$/file\"\n"},
      {{"-d", "$", "-i"},
       1,
       "Path to meta database: ",
       placement + overruled + "Cannot read an answer from standard input\n"},
  };
  for (const auto& [arguments, status, out, err] : cases) {
    const auto outcome = tool::run(texts(arguments));
    SCOPED_TRACE(::testing::PrintToString(arguments));
    EXPECT_EQ(outcome.status, status);
    EXPECT_THAT(outcome.out, AllOf(StartsWith(title), EndsWith(out)));
    EXPECT_EQ(outcome.err, text(err));
    EXPECT_TRUE(has_no_database());
  }
}

TEST_F(CommandLine, TakesTheLastOfSeveralPaths) {
  std::filesystem::create_directory(local("last"));
  // An option is told by its first two characters, and a last one without a path changes nothing.
  const auto outcome = tool::run(texts({"-d", "$", "-d", "$/last", "-force", "-cn", "-d"}));
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_THAT(outcome.err, StartsWith(text(placement + "placement path: \"$/last\"\n")));
  EXPECT_TRUE(exists("last/main.odb"));
  EXPECT_TRUE(has_no_database());
}

TEST_F(CommandLine, AsksOnceBeforeItCreatesTheDefaults) {
  const std::string summaries = title + transcript("defaults");
  for (const std::string answer : {"", "n\n", "Y\n", "yess\n", "\n \n", "ye"}) {
    const auto outcome = tool::run(texts({"-d", "$"}), answer);
    EXPECT_EQ(outcome.status, 0) << answer;
    EXPECT_EQ(outcome.out, summaries) << answer;
    EXPECT_EQ(outcome.err, text(placement + "ok - exising.\n\n")) << answer;
    EXPECT_TRUE(has_no_database()) << answer;
  }
  for (const std::string answer : {"y", "yes\nno\n", " \n\t y "}) {
    EXPECT_EQ(tool::run(texts({"-d", "$", "-c"}), answer).out, summaries) << answer;
    EXPECT_TRUE(exists("main.tsdb")) << answer;
    remove_files();
  }
  EXPECT_EQ(tool::run(texts({"-d", "$", "-c", "-f"})).out, summaries + "y\n");
}

// The files that come before the one that stands in the way are left.
TEST_F(CommandLine, NeverTouchesAnExistingFile) {
  const std::string names[] = {"main.odb", "main.odbj", "main.tsdb"};
  for (std::size_t i = 0; i < 3; ++i) {
    write_file(names[i], "no");
    const auto outcome = tool::run(texts({"-d", "$", "-f"}));
    EXPECT_EQ(outcome.status, 1) << names[i];
    EXPECT_THAT(outcome.err, EndsWith(text("Unable to create file \"$\\" + names[i] + "\"\n")));
    EXPECT_EQ(file(names[i]), reader::Bytes({'n', 'o'}));
    for (std::size_t other = 0; other < 3; ++other)
      EXPECT_EQ(exists(names[other]), other <= i);
    remove_files();
  }
}

TEST_F(CommandLine, IsNotEndedByASignalWhenAFileOrItsOutputTakesNoMore) {
  if (tool::is_windows_program())
    GTEST_SKIP() << "Windows has no such signals";
  const auto arguments = texts({"-d", "$", "-f"});
  const auto too_large = tool::run(arguments, "", "ulimit -f 2000; tool");
  EXPECT_EQ(too_large.status, 1);
  EXPECT_THAT(too_large.err, EndsWith(text("Unable to write to \"$\\main.odb\"\n")));
  remove_files();
  const std::string nobody_reads = "mkfifo \"$d/p\"; exec 3<>\"$d/p\" 4>\"$d/p\" 3<&-; tool >&4";
  EXPECT_EQ(tool::run(arguments, "", nobody_reads).status, 0);
}

TEST_F(CommandLine, EndsAtOnceWhenItIsInterruptedAndNamesWhatItLeaves) {
  for (const auto& [signal, status] : {std::pair<std::string, int>("INT", 130), {"TERM", 143}}) {
    if (tool::is_windows_program() && signal != "INT")
      continue;
    const auto outcome =
        tool::run({"-i", "-f"}, text(large),
                  "tool & until grep -q '" + growth +
                      "' \"$d/err\" || ! kill -0 $!; do sleep 0.01; done; kill -" + signal + " $!; wait $!");
    EXPECT_EQ(outcome.status, status);
    EXPECT_THAT(outcome.err,
                EndsWith(text(growth + "\nInterrupted, left behind: \"$\\main.odb\" \"$\\main.tsdb\"\n")));
    EXPECT_THAT(outcome.out, EndsWith("(y/n): y\n")) << "nothing that was said is lost";
    EXPECT_LT(file("main.tsdb").size(), 128U << 20);
    EXPECT_FALSE(exists("main.odbj"));
    remove_files();
  }
}

}  // namespace
