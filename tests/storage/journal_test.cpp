#include <tuple>

#include "common/bytes.h"
#include "metadb/storage/journal_format.h"
#include "overlay.h"
#include "storage_fixture.h"

namespace {

using JournalTest = StorageTest;

std::string hex_of(std::span<const std::byte> bytes) {
  std::string hex;
  for (const std::byte byte : bytes) {
    for (const unsigned digit : {std::to_integer<unsigned>(byte) / 16, std::to_integer<unsigned>(byte) % 16})
      hex += "0123456789abcdef"[digit];
  }
  return hex;
}

TEST_F(JournalTest, EntriesAreLaidOutAsDocumented) {
  create(8192, 4096);
  open();
  EXPECT_EQ(mdb::journal_free(), 2048U - 8 - 48);
  commit("hello", 0x1234);
  EXPECT_EQ(hex_of(mdb::journal_bytes().first(104)),
            "4a484452000000010000000000000000"
            "000000000000000100000030606cdf73"
            "0000000000000000000000007bd5c66f"
            "54424547000000000000000000000001"
            "5455504400000005000000000000123400000000"
            "68656c6c6f00000000000000"
            "54454e44e19503ce");
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

  forget();
  open();
  EXPECT_EQ(mdb::format::load_index_pointer(mdb::journal_bytes(), 1).serial, 2U)
      << "writing goes on in the half that was not replayed from";
  EXPECT_EQ(mdb::format::load_index_pointer(mdb::journal_bytes(), 1).jpos, 2048U);
  EXPECT_EQ(mdb::journal_free(), 2048U - 8);
}

TEST_F(JournalTest, LazyCommitsAreSyncedAndAppliedWithinASecond) {
  create(8192, 8192);
  open();
  commit("first", 0);  // the first commit after opening is due at once or within the second
  commit("lazy", 512);
  EXPECT_NE(in_file(512, 4), "lazy");
  EXPECT_EQ(seen(512, 4), "lazy");
  pass_seconds(1);
  commit("next", 1024);
  EXPECT_EQ(in_file(512, 4), "lazy") << "the begin applied what was due";
  EXPECT_NE(in_file(1024, 4), "next");
  commit("synced", 1536, false);
  EXPECT_EQ(in_file(1536, 6), "synced");
  commit("late", 2048);
  pass_seconds(1);
  mdb::Transaction transaction;
  EXPECT_EQ(in_file(2048, 4), "late") << "the next begin applies what is due";
}

TEST_F(JournalTest, MovesToTheOtherHalfWhenThisOneIsFull) {
  create(8192, 8192);
  open();
  commit("kept", 700);
  while (mdb::journal_free() >= 1024)
    commit("fill", 0);
  EXPECT_FALSE(logged("Checkpoint initiated because of semi-full log"));
  commit("next", 900);
  EXPECT_TRUE(logged("Checkpoint initiated because of semi-full log"));
  EXPECT_EQ(in_file(700, 4), "kept");
  EXPECT_EQ(mdb::format::load_index_pointer(mdb::journal_bytes(), 1).serial, 2U);
  const auto fill = [] { mdb::transaction_update(Bytes(mdb::journal_free() - 20), 300); };
  const auto begin = mdb::journal_bytes().size() - 8 - mdb::journal_free();
  {
    mdb::Transaction transaction;
    fill();
    EXPECT_EQ(thrown_by([&] { transaction.end(); }), "internal: After journal flip; no space for transend.")
        << "the first half is 48 bytes shorter";
  }
  EXPECT_TRUE(logged("Flipping journal at end of transaction"));
  EXPECT_EQ(text_of(mdb::journal_bytes().subspan(begin, 4)), "TRED");
  {
    mdb::Transaction transaction;
    write("moved", 200);
    fill();
    transaction.end();
  }
  EXPECT_EQ(seen(200, 5), "moved");
  commit("after", 400);
  forget();
  open();
  EXPECT_EQ(in_file(200, 5), "moved");
  EXPECT_EQ(in_file(400, 5), "after");
}

TEST_F(JournalTest, TinyJournalsSayThatNothingFits) {
  const std::pair<std::size_t, const char*> cases[] = {
      {48, "range: Access beyond end of journal attempted"},
      {56, "internal: After journal flip; no space for transbeg."},
      {71, "internal: After journal flip; no space for transbeg."},
      {80, "transact: Transaction log full"}};
  for (const auto& [size, thrown] : cases) {
    create(8192, size);
    open();
    EXPECT_EQ(thrown_by([] { commit("x", 0); }), thrown) << size;
    forget();
  }
}

TEST_F(JournalTest, MisuseIsRefused) {
  EXPECT_EQ(thrown_by([] { mdb::transaction_begin(); }), "internal: No journal mapped");
  EXPECT_EQ(thrown_by([] { mdb::journal_validate(); }), "internal: No journal mapped");
  create(8192, 4096);
  map();
  EXPECT_EQ(thrown_by([] { mdb::transaction_begin(); }), "internal: Journal has not been validated");
  mdb::journal_validate();
  EXPECT_EQ(thrown_by([] { write("x", 0); }), "internal: Update outside of transaction attempted");
  EXPECT_EQ(thrown_by([] { mdb::transaction_end(true); }), "internal: End of non-existing transaction");
  sim_.add_file("/short", Bytes(47));
  mdb::journal_map("/short", 0, 0, true);
  EXPECT_EQ(thrown_by([] { mdb::journal_format(); }), "range: Access beyond end of journal attempted");
  EXPECT_EQ(thrown_by([] { mdb::journal_validate(); }),
            "fubar: Journal does not start with a journal header");
  Bytes buffer(8);
  EXPECT_EQ(thrown_by([&] { mdb::overlay_update(buffer, 100, 104, {}); }),
            "internal: Non-positive overlap during local replay");
  mdb::journal_map(journal_path, 0, 0, true);
  mdb::journal_validate();
  mdb::set_address_limit(1 << 20);
  mdb::Transaction guard;
  EXPECT_EQ(thrown_by([] { write("xy", (1 << 20) - 1); }),
            "range: Write beyond end of object backing store attempted");
  write("x", (1 << 20) - 1);
  mdb::journal_shutdown();
  EXPECT_FALSE(guard.is_open()) << "or it would abort a transaction of the next journal";
#if GTEST_HAS_DEATH_TEST
  mdb::journal_map(journal_path, 0, 0, true);
  mdb::journal_validate();
  mdb::Transaction outer;
  mdb::Transaction inner;
  EXPECT_DEATH(mdb::transaction_end(false), "Assertion failed: Syncronous nested transactions not supported");
#endif
}

TEST_F(JournalTest, AForeignSerialInTheRunningJournalIsCorruption) {
  create(8192, 8192);
  open();
  commit("good", 0);
  pass_seconds(5);
  commit("good", 0);
  const std::uint32_t free = mdb::journal_free();
  commit("stale", 512);
  bytes::store_u64(mdb::journal_bytes(), 4096 - 8 - free + 8, 77);
  pass_seconds(5);
  EXPECT_EQ(thrown_by([] { mdb::transaction_begin(); }),
            "internal: Stale transaction found in running journal");
  EXPECT_NE(in_file(512, 5), "stale");
}

TEST_F(JournalTest, AFailedFlushStaysFailedUntilReopened) {
  using simulation::Operation;
  const std::tuple<Operation, const char*, const char*> cases[] = {
      {Operation::mapping_sync, journal_path, "io: Error when syncing journal"},
      {Operation::sync, store_path, "io: sync error on backing store"}};
  for (const auto& [operation, file, thrown] : cases) {
    create(8192, 8192);
    open();
    commit("durable", 0, false);
    commit("lazy", 512);
    sim_.inject({.operation = operation, .path_end = file});
    for (int i = 0; i < 2; ++i) {
      EXPECT_EQ(thrown_by([] { mdb::journal_flip(false); }), thrown);
      EXPECT_EQ(thrown_by([] { mdb::transaction_begin(); }), thrown);
    }
    forget();
    open();
    EXPECT_EQ(in_file(0, 7), "durable");
    EXPECT_EQ(in_file(512, 4), "lazy");
    forget();
  }
}

TEST_F(JournalTest, ASerialIsNeverMetTwice) {
  create(8192, 8192);
  open();
  // What a half may hold from before: a complete transaction that already bears the next serial.
  const auto half = mdb::journal_bytes().subspan(4096);
  commit("ghost", 600);
  std::ranges::copy(mdb::journal_bytes().subspan(48, 64), half.begin() + 800);
  bytes::store_u64(half, 808, 2);
  mdb::journal_flip(false);
  EXPECT_EQ(text_of(half.subspan(800, 4)), std::string(4, '\0'));

  // Data, too, that reads like the begin of a serial to come: it is met when its half is entered the second
  // time.
  Bytes like_a_begin = bytes_of("....TBEG............");
  bytes::store_u64(like_a_begin, 12, 6);
  commit(text_of(like_a_begin), 600);
  const auto data = half.subspan(16 + 20, like_a_begin.size());
  for (const std::string& expected : {text_of(like_a_begin), text_of(like_a_begin), std::string(16, '\0')}) {
    EXPECT_TRUE(text_of(data).ends_with(expected));
    mdb::journal_flip(false);
    mdb::journal_flip(false);
  }
}

}  // namespace
