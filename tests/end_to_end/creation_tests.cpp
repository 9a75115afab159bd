// What the tool leaves on the disk, to the byte: the default pair as a dump that can be read, all others by
// digests.

#include <ctime>
#include <iomanip>
#include <sstream>

#include "fixture.h"

namespace {

using Creation = EndToEnd;

struct Configuration {
  std::string arguments;
  std::string answers;  // db/j is for the journal, db/t for the time series; "" without a dialogue
  std::uint64_t mdb, journal, tsdb;  // digests; 0 where there is no file
};

const Configuration configurations[] = {
    {"-f -d db", "", 0x5819'FC08'0B7E'0AC6, 0xB074'2CD4'4214'D0F2, 0x6602'8FF8'9B9F'5B26},
    {"-f -d db -n", "", 0x5819'FC08'0B7E'0AC6, 0x95CA'593F'FB65'2D01, 0xF132'3B4C'B855'A40C},
    {"-f -d db -n -c", "", 0x5819'FC08'0B7E'0AC6, 0xC73C'011E'8241'BD52, 0xF132'3B4C'B855'A40C},
    {"-f -i", "db x i 129 4 6 2 3000 8192 0 1 db/t", 0x5294'50F7'E18A'F02D, 0, 0xCD8C'571D'7D13'1F70},
    {"-f -i", "db e db/j 5 5 1024 64 db/t", 0xCCFC'15DF'52A0'B9C7, 0x8F05'BE78'2C94'D0F2,
     0x4A50'9514'9B83'B251},
    {"-f -i", "db i 128 5 16384 1 db/t", 0x8AA5'3FA0'E90B'32B7, 0, 0xD8E9'2BC9'B90F'BB93},
    {"-f -i -n", "db e db/j 8 3 4096 2 db/t", 0xCCFC'15DF'52A0'B9C7, 0x95CA'593F'FB65'2D01,
     0xD4FD'EAD0'AA7B'841C},
};

std::uint32_t word_at(const std::string& bytes, std::size_t at) {
  std::uint32_t word = 0;
  for (const char byte : bytes.substr(at, 4))
    word = word << 8 | static_cast<std::uint8_t>(byte);
  return word;
}

// FNV-1a of 64 bits.
std::uint64_t digest(const std::string& bytes) {
  std::uint64_t sum = bytes.empty() ? 0 : 0xCBF2'9CE4'8422'2325;
  for (const char byte : bytes)
    sum = (sum ^ static_cast<std::uint8_t>(byte)) * 0x100'0000'01B3;
  return sum;
}

// The bytes of a file, but for the time at which a time series database was created.
std::string lasting(std::string bytes) {
  if (bytes.starts_with("TSDB"))
    bytes.replace(16, 4, 4, '\0');
  return bytes;
}

// The words of the rows that are not all zero.
std::string dump(const std::string& name, const std::string& bytes) {
  constexpr std::size_t row_size = 32;
  const std::string zeros(row_size, '\0');
  std::ostringstream text;
  text << name << ", " << bytes.size() << " bytes\n" << std::hex << std::setfill('0');
  for (std::size_t row = 0; row < bytes.size(); row += row_size) {
    if (bytes.compare(row, row_size, zeros) == 0)
      continue;
    text << std::setw(7) << row << ':';
    for (std::size_t at = row; at < row + row_size; at += 4)
      text << ' ' << std::setw(8) << word_at(bytes, at);
    text << '\n';
  }
  return text.str();
}

TEST_F(Creation, LeavesTheSameBytesEachTime) {
  std::filesystem::create_directory("db/j");
  std::filesystem::create_directory("db/t");
  for (const auto& [arguments, answers, mdb, journal, tsdb] : configurations) {
    SCOPED_TRACE(arguments + answers);
    const Outcome outcome = run(arguments, answers);
    ASSERT_EQ(outcome.status, 0) << outcome.err;
    const bool apart = !answers.empty();
    EXPECT_EQ(digest(file("main.odb")), mdb);
    EXPECT_EQ(digest(file(apart ? "j/main.odbj" : "main.odbj")), journal);
    EXPECT_EQ(digest(lasting(file(apart ? "t/main.tsdb" : "main.tsdb"))), tsdb);
    remove_files();
  }
}

TEST_F(Creation, LeavesTheDefaultPairTellsItsProgressAndKeepsTheFilesForTheirOwner) {
  using std::filesystem::perms;
  const auto earliest = std::time(nullptr);
  EXPECT_EQ(run("-d db -f").err, transcript("progress"));
  std::string dumps;
  for (const std::string name : {"main.odb", "main.odbj", "main.tsdb"}) {
    dumps += dump(name, lasting(file(name)));
    const auto rights = std::filesystem::status("db/" + name).permissions();
    EXPECT_TRUE(real::under_wine() || rights == (perms::owner_read | perms::owner_write)) << name;
  }
  EXPECT_EQ(dumps, transcript("default_pair"));
  const std::uint32_t creation_time = word_at(file("main.tsdb"), 16);
  EXPECT_GE(creation_time, earliest);
  EXPECT_LE(creation_time, std::time(nullptr));
}

}  // namespace
