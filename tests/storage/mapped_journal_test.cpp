#include <cerrno>
#include <system_error>

#include "storage_fixture.h"

namespace {

using MappedJournalTest = StorageTest;

TEST_F(MappedJournalTest, MapsAPartOfTheFileOrAllUpToItsEnd) {
  sim_.add_file(journal_path, Bytes(20'000));
  mdb::journal_map(journal_path, 8192, 512, false);
  std::ranges::copy(bytes_of("journal"), mdb::journal_bytes().begin());
  mdb::journal_unmap();
  EXPECT_EQ(text_of(sim_.contents(journal_path)).substr(8192, 7), "journal");

  mdb::journal_map(journal_path, 1000, 0, true, 4096);
  EXPECT_TRUE(logged("Will use 19000 as journal length"));
  EXPECT_EQ(mdb::journal_mapped_length(), 19'000U);
  EXPECT_EQ(mdb::journal_bytes().size(), 4096U) << "nothing is placed past the limit";
  EXPECT_FALSE(sim_.open(journal_path, platform::Sharing::readers).ok()) << "it is nobody else's";
  mdb::journal_unmap();
  EXPECT_TRUE(sim_.open(journal_path, platform::Sharing::readers).ok());
}

TEST_F(MappedJournalTest, RefusesWhatCannotBeMapped) {
  sim_.set_error_text(2, "not there\r\n");
  sim_.add_file(journal_path, Bytes(20'000));
  const auto refusal = [](int code) {
    return "io: Cannot memory map journal: " + std::generic_category().message(code);
  };
  EXPECT_EQ(thrown_by([] { mdb::journal_map("/nowhere", 0, 0, true); }),
            "open: Cannot open journal in \"/nowhere\": not there");
  EXPECT_EQ(thrown_by([] { mdb::journal_map(journal_path, 20'000, 0, true); }), refusal(EINVAL));
  EXPECT_EQ(thrown_by([] { mdb::journal_map(journal_path, 0, std::uint64_t{1} << 32, true); }),
            refusal(EFBIG));
}

}  // namespace
