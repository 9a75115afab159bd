// Records in data blocks: where they go, what frees and splits leave, and what failures must not leave.

#include "mdb_fixture.h"

namespace mdb_test {
namespace {

struct BytesRecord : mdb::RecordWriter {
  explicit BytesRecord(std::size_t length) : bytes(length, std::byte{7}) {}

  std::uint32_t length() const override { return static_cast<std::uint32_t>(bytes.size()); }
  void write(mdb::ObjectHandle& object, const mdb::ObjectHandle*) override {
    ASSERT_EQ(mdb::object_record(object).size(), bytes.size());
    std::ranges::copy(bytes, mdb::object_record(object).begin());
  }

  const Bytes bytes;
};

ObjectReference store(ObjectReference reference, std::size_t length) {
  BytesRecord record(length);
  return mdb::object_store(reference, record);
}

void free_object(ObjectReference reference) {
  mdb::ObjectHandle object = mdb::object_load(reference);
  mdb::Transaction transaction;
  mdb::object_free(object);
  transaction.end();
}

TEST(Objects, RecordsLieAtTheEndOfTheSpaceFoundAndInTheirOwnBlockIfItServes) {
  TestMdb mdb;
  const std::uint32_t block = mdb.data_first();
  struct Case {
    Layout before;
    ObjectReference from;
    std::size_t length;  // of the record to store, 0 to free
    ObjectReference to;
    Layout after;
    BlockClass block_class = BlockClass::used;  // with less than a quarter free it is full
  };
  const Case cases[] = {
      {{-512}, {}, 60, {block, 448}, {-448, 64}},
      {{100, -200, 212}, {}, 196, {block, 100}, {100, 200, 212}},
      // A search stops when a quarter is free and one serves, and takes the last that does.
      {{-40, 100, -40, 100, -48, 84, -100}, {}, 36, {block, 288}, {-40, 100, -40, 100, -8, 40, 84, -100}},
      {{-60, 100, -64, 208, -16, 64}, {}, 36, {block, 184}, {-60, 100, -24, 40, 208, -16, 64}},
      // Two bytes left over hold no header.
      {{-128, 100, -132, 152}, {}, 126, {block + 1, 170}, {-128, 100, -132, 152}},
      {{-42, 470}, {}, 36, {block + 1, 260}, {-42, 470}, BlockClass::full},
      {{384, -128}, {}, 124, {block, 384}, {384, 128}},
      // An object prefers its own block.
      {{-200, 60, 252}, {block, 200}, 96, {block, 160}, {-160, 100, 252}},  // grows into the gap before it
      {{-160, 100, 252}, {block, 160}, 36, {block, 220}, {-220, 40, 252}},  // and shrinks to its end
      {{-220, 40, 252}, {block, 220}, 256, {block, 0}, {260, 252}},         // takes all that is free, exactly
      {{-260, 252}, {block, 260}, 400, {block, 108}, {-108, 404}},          // starts an Empty block
      {{260, 252}, {block, 0}, 280, {block + 1, 16}, {-260, 252}},          // that is not enough
      {{-412, 100}, {block, 412}, 0, {}, {-512}, BlockClass::empty},
      {{-100, 40, -60, 312}, {block, 100}, 0, {}, {-200, 312}},
      {{100, 126, 286}, {block, 100}, 0, {}, {100, -126, 286}, BlockClass::full},
      {{4, 504, 4}, {block, 0}, 0, {}, {-4, 504, 4}, BlockClass::full},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.before));
    put_layout(block, c.before, c.from.block == 0 ? BlockClass::used : BlockClass::full);
    put_layout(block + 1, {-300, 212});
    mdb.reopen();  // no block is the last-good one
    if (c.length == 0) {
      free_object(c.from);
    } else {
      EXPECT_EQ(store(c.from, c.length), c.to);
      const std::uint32_t journal_free = mdb::journal_free();
      EXPECT_EQ(store(c.to, c.length), c.to);
      EXPECT_EQ(mdb::journal_free(), journal_free) << "the same bytes again take no room";
    }
    EXPECT_EQ(layout_of(block), c.after);
    EXPECT_EQ(mdb::mark_query(block), c.block_class);
  }
}

TEST(Objects, LoadTakesOnlyALiveObjectThatStartsThereAndDamageIsReportedNotFollowed) {
  TestMdb mdb;
  const std::uint32_t block = mdb.data_first();
  put_layout(block, {100, -112, 300});
  set_word(block, 40, 20);  // what looks like an object inside a record
  EXPECT_EQ(record_of({block, 212}), Bytes(296, std::byte{0xEE}));
  EXPECT_EQ(thrown_by([&] { record_of({block}); }), "nullobj: Attempt to read null object");
  for (const std::uint32_t offset : {100u, 40u, 1u, 510u, 512u, 516u, 0xFFFF'FFFEu})
    EXPECT_EQ(thrown_by([&] { record_of({block, offset}); }), "need_repair: Attempt to load placeholder");

  const std::string report =
      text::concat("consistency: Object at offset 100 in block ", block, " has zero length");
  for (const std::uint32_t header : {0u, 1u, 3u, 414u, 415u, 0x7FFF'FFFEu, 0xFFFF'FFFEu}) {
    SCOPED_TRACE(header);
    put_layout(block, {100, 100, 100, -212});
    set_word(block, 100, header);
    EXPECT_EQ(record_of({block, 0}).size(), 96u);
    expect_refusal([&] { record_of({block, 200}); }, report);
    expect_refusal([] { mdb::alloc_space(0, 40); }, report);
    expect_refusal([&] { free_object({block, 0}); }, report);  // the damage is its neighbour
  }
}

TEST(Objects, AnObjectThatHasOftenBeenLookedAtIsGoneOnceItIsFreed) {
  for (const std::uint32_t cached_blocks : {8192u, 1u}) {
    TestMdb mdb;
    mdb::cache_set_limit(cached_blocks);
    const ObjectReference kept = store({}, 60), freed = store({}, 60), elsewhere = store({}, 400);
    ASSERT_NE(elsewhere.block, freed.block);
    const auto look = [](ObjectReference reference) {
      mdb::BlockBuffer scratch;
      for (int time = 0; time < 3; ++time)
        (void)mdb::object_view(reference, scratch);
    };
    const auto look_at_both = [&] { return thrown_by([&] { look(kept), look(freed); }); };
    EXPECT_EQ(look_at_both(), "nothing");
    {
      const mdb::Transaction undone;
      free_object(freed);
      EXPECT_EQ(look_at_both(), "need_repair: Attempt to load placeholder");
    }
    EXPECT_EQ(look_at_both(), "nothing");
    {
      mdb::Transaction transaction;
      free_object(freed);
      look(elsewhere);  // the commit finds the block in no cache of one
      transaction.end();
    }
    EXPECT_EQ(look_at_both(), "need_repair: Attempt to load placeholder");
    EXPECT_EQ(store({}, 60), freed);
    EXPECT_EQ(look_at_both(), "nothing");
  }
}

TEST(Objects, AStoreThatCannotBeLeavesNothing) {
  TestMdb mdb({.journal_bytes = 8192});
  const ObjectReference kept = store({}, 60);
  for (const ObjectReference reference : {kept, ObjectReference{}}) {
    for (const std::size_t length : {509u, 510u, 4000u})
      expect_refusal([&] { store(reference, length); }, "dbnospace: No free blocks in meta database");
  }
  // With so little room left in the journal not even freeing the object again would fit.
  const Layout before = layout_of(kept.block);
  mdb::Transaction callers;
  while (mdb::journal_free() > 71)
    mdb::transaction_update(Bytes(4), std::uint64_t{mdb.data_first() + 8} * mdb::block_size());
  EXPECT_EQ(thrown_by([] { store({}, 200); }), "transact: Transaction log full");
  callers.end();
  EXPECT_EQ(layout_of(kept.block), before);
}

}  // namespace
}  // namespace mdb_test
