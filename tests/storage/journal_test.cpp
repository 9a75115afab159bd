// The journal's bytes, what is due when, and what its limits and failures say.

#include "common/text.h"
#include "storage_fixture.h"

namespace {

using JournalTest = StorageTest;

TEST_F(JournalTest, EntriesAreLaidOutAsDocumented) {
  create(8192, 4096);
  open();
  EXPECT_EQ(mdb::journal_free(), 2048U - 8 - 48);
  commit("hello", 0x1234);
  const std::pair<const char*, std::vector<std::uint32_t>> entries[] = {
      {"header", {0x4A48'4452, 1, 0, 0}},
      {"pointer of this half", {0, 1, 48, 0x606C'DF73}},
      {"pointer of the other half", {0, 0, 0, 0x7BD5'C66F}},
      {"begin", {0x5442'4547, 0, 0, 1}},
      {"update", {0x5455'5044, 5, 0, 0x1234, 0, 0x6865'6C6C, 0x6F00'0000, 0}},
      {"end", {0x5445'4E44, 0xE195'03CE}}};
  std::size_t at = 0;
  for (const auto& [name, words] : entries) {
    for (const std::uint32_t word : words) {
      EXPECT_EQ(bytes::load_u32(mdb::journal_bytes(), at), word) << name;
      at += 4;
    }
  }
  const std::uint32_t free = mdb::journal_free();
  {
    mdb::Transaction transaction;
    for (const auto& [length, size] : {std::pair{4U, 24U}, {0U, 24U}, {5U, 32U}, {12U, 32U}, {13U, 40U}}) {
      const std::uint32_t before = mdb::journal_free();
      mdb::transaction_update(Bytes(length), 100);
      EXPECT_EQ(before - mdb::journal_free(), size) << length << " bytes";
    }
  }
  mdb::Transaction().end();
  EXPECT_EQ(mdb::journal_free(), free) << "aborted and empty transactions leave no entry";

  drop_databases();
  open();
  const auto pointer = mdb::format::load_index_pointer(mdb::journal_bytes(), 1);
  EXPECT_EQ(std::pair(pointer.serial, pointer.jpos), std::pair(std::uint64_t{2}, 2048U))
      << "writing goes on in the half that was not replayed from";
  EXPECT_EQ(mdb::journal_free(), 2048U - 8);
}

TEST_F(JournalTest, LazyCommitsAreSyncedAndAppliedWithinASecond) {
  create(8192, 8192);
  open();
  commit("first", 0);  // the first commit after opening is due at once or within the second
  commit("lazy", 512);
  EXPECT_NE(in_file(512, 4), "lazy");
  pass_seconds(1);
  commit("next", 1024);
  EXPECT_EQ(in_file(512, 4), "lazy") << "the begin applied what was due";
  EXPECT_NE(in_file(1024, 4), "next");
  commit("synced", 1536, false);
  EXPECT_EQ(in_file(1536, 6), "synced");
}

TEST_F(JournalTest, TinyJournalsSayThatNothingFits) {
  const std::pair<std::size_t, const char*> cases[] = {
      {48, "range: Access beyond end of journal attempted"},
      {71, "internal: After journal flip; no space for transbeg."},
      {80, "transact: Transaction log full"}};
  for (const auto& [size, thrown] : cases) {
    create(8192, size);
    open();
    EXPECT_EQ(thrown_by([] { commit("x", 0); }), thrown) << size;
    drop_databases();
  }
}

TEST_F(JournalTest, MisuseIsRefused) {
  EXPECT_EQ(thrown_by([] { mdb::transaction_begin(); }), "internal: No journal mapped");
  create(8192, 4096);
  map();
  EXPECT_EQ(thrown_by([] { mdb::transaction_begin(); }), "internal: Journal has not been validated");
  mdb::journal_validate();
  EXPECT_EQ(thrown_by([] { write("x", 0); }), "internal: Update outside of transaction attempted");
  mdb::set_address_limit(1 << 20);
  const mdb::Transaction guard;
  EXPECT_EQ(thrown_by([] { write("xy", (1 << 20) - 1); }),
            "range: Write beyond end of object backing store attempted");
  mdb::journal_shutdown();
  EXPECT_FALSE(guard.is_open()) << "or it would abort a transaction of the next journal";
}

TEST_F(JournalTest, WhatAnEntryDoesNotSetStaysAndAForeignSerialIsCorruption) {
  create(8192, 8192);
  open();
  const auto journal =
      mdb::journal_bytes_to_change().subspan(mdb::journal_bytes().size() / 2 - 8 - mdb::journal_free());
  std::ranges::fill(journal.first(128), std::byte{0xA5});
  commit("hello", 512);
  EXPECT_EQ(bytes::load_u32(journal, 4), 0xA5A5'A5A5) << "of a begin entry";
  EXPECT_EQ(bytes::load_u32(journal, 16 + 24), 0x6FA5'A5A5) << "behind the data";
  bytes::store_u64(journal, 8, 77);
  pass_seconds(5);
  EXPECT_EQ(thrown_by([] { mdb::transaction_begin(); }),
            "internal: Stale transaction found in running journal");
  EXPECT_NE(in_file(512, 5), "hello");
}

TEST_F(JournalTest, UpdatesThatDidNotComeAlongAreNeitherReadNorCommitted) {
  create(8192, 8192);
  open();
  mdb::journal_flip(false);
  mdb::Transaction transaction;
  write(std::string(4052, 'x'), 0);
  EXPECT_EQ(thrown_by([&] { transaction.end(); }), "internal: After journal flip; no space for transend.");
  const std::string incomplete =
      "internal: Attempt to follow incomplete update sequence beyond end of active journal space";
  EXPECT_EQ(thrown_by([] { (void)mdb::read_block_copy(0); }), incomplete);
  EXPECT_EQ(thrown_by([] { write("more", 0); }), incomplete);
  EXPECT_EQ(thrown_by([&] { transaction.end(); }), incomplete);
}

TEST_F(JournalTest, WhatCannotBeWrittenStaysFailed) {
  using simulation::Operation;
  const std::tuple<Operation, const char*, const char*> cases[] = {
      {Operation::mapping_write, journal_path, "io: Error when syncing journal"},
      {Operation::mapping_sync, journal_path, "io: Error when syncing journal"},
      {Operation::sync, store_path, "io: sync error on backing store"}};
  for (const auto& [operation, file, thrown] : cases) {
    create(8192, 8192);
    open();
    commit("lazy", 512);
    sim.inject({.operation = operation, .path_end = file});
    for (int i = 0; i < 2; ++i)
      EXPECT_EQ(thrown_by([] { mdb::journal_flip(false); }), thrown);
    EXPECT_EQ(thrown_by([] { mdb::transaction_begin(); }), thrown);
    drop_databases();
  }
}

TEST_F(JournalTest, WhatIsAbortedLeavesTheChecksumOfTheRestWhole) {
  create(1'048'576, 4'194'304);
  // Up to entries and transactions that do not wait in memory for their end.
  for (const auto& [entries, length] : {std::pair{1U, 100U}, {5U, 100'000U}, {1U, 300'000U}}) {
    for (const bool is_last : {true, false}) {
      open();
      const std::string kept =
          text::concat("kept beside ", entries, " of ", length, is_last ? " at the end" : "");
      {
        mdb::Transaction whole;
        write(kept, 0);
        {
          const mdb::Transaction aborted;
          for (unsigned i = 0; i < entries; ++i)
            write(std::string(length, 'x'), 0);
        }
        if (!is_last)
          write(std::string(length, 'y'), 512);
        whole.end();
      }
      drop_databases();
      open();
      EXPECT_EQ(in_file(0, kept.size()), kept);
      drop_databases();
    }
  }
}

TEST_F(JournalTest, ASerialIsNeverMetTwice) {
  constexpr std::size_t half_bytes = std::size_t{1} << 20;
  constexpr std::size_t piece = std::size_t{256} << 10;  // that is searched at once
  create(8192, 2 * half_bytes);
  // What the halves may hold from before: begins that already bear their next serials.
  Bytes old = sim.contents(journal_path);
  for (const auto& [first, end, serial] : {std::tuple{std::size_t{48}, half_bytes, std::uint64_t{1}},
                                           {half_bytes, 2 * half_bytes, std::uint64_t{2}}}) {
    for (const std::size_t place : {first, first + piece - 8, first + 2 * piece, end - 16}) {
      std::ranges::copy(bytes_of("TBEG"), old.begin() + static_cast<std::ptrdiff_t>(place));
      bytes::store_u64(old, place + 8, serial);
    }
  }
  sim.set_contents(journal_path, old);
  open();
  const auto half = mdb::journal_bytes().subspan(half_bytes);
  const auto begins_anywhere = [] { return text_of(mdb::journal_bytes()).find("TBEG"); };
  EXPECT_EQ(begins_anywhere(), half_bytes) << "the half that was entered has none";
  mdb::journal_flip(false);
  EXPECT_EQ(begins_anywhere(), std::string::npos);

  // Data, too, that reads like the begin of a serial to come: it is met when its half is entered the second
  // time.
  std::string like_a_begin = "....TBEG............";
  bytes::store_u64(std::as_writable_bytes(std::span(like_a_begin)), 12, 6);
  commit(like_a_begin, 600);
  const auto data = half.subspan(16 + 20, like_a_begin.size());
  for (const std::string& expected : {like_a_begin, like_a_begin, std::string(16, '\0')}) {
    EXPECT_TRUE(text_of(data).ends_with(expected));
    mdb::journal_flip(false);
    mdb::journal_flip(false);
  }
}

}  // namespace
