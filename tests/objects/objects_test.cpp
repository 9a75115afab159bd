// Records in data blocks: where they go, what frees and splits leave, and what failures must not leave.

#include "metadb/objects/objects.h"

#include <functional>

#include "mdb_fixture.h"

namespace mdb_test {
namespace {

class BytesRecord : public mdb::RecordWriter {
 public:
  explicit BytesRecord(Bytes bytes) : bytes_(std::move(bytes)) {}

  std::uint32_t length() const override { return static_cast<std::uint32_t>(bytes_.size()); }
  void write(mdb::ObjectHandle& object, const mdb::ObjectHandle*) override {
    ASSERT_EQ(mdb::object_record(object).size(), bytes_.size());
    std::ranges::copy(bytes_, mdb::object_record(object).begin());
  }

 private:
  Bytes bytes_;
};

ObjectReference store(ObjectReference reference, const Bytes& bytes) {
  BytesRecord record(bytes);
  return mdb::object_store(reference, record);
}

void free_object(ObjectReference reference) {
  mdb::ObjectHandle object = mdb::object_load(reference);
  mdb::Transaction transaction;
  mdb::object_free(object);
  transaction.end();
}

Bytes filled(std::size_t length, std::uint8_t value) {
  return Bytes(length, static_cast<std::byte>(value));
}

TEST(Objects, RecordsLieAtTheEndOfTheSpaceFound) {
  TestMdb mdb;
  const std::uint32_t block = mdb.data_first();
  const ObjectReference first = store({}, filled(60, 1));
  EXPECT_EQ(first, (ObjectReference{block, 448}));
  EXPECT_EQ(store({}, filled(96, 2)), (ObjectReference{block, 348}));
  EXPECT_EQ(layout_of(block), (Layout{-348, 100, 64}));

  // The same bytes again take no room in the journal.
  const std::uint32_t journal_free = mdb::journal_free();
  EXPECT_EQ(store(first, filled(60, 1)), first);
  EXPECT_EQ(mdb::journal_free(), journal_free);

  put_layout(block, {100, -200, 212});
  const ObjectReference whole = mdb::object_allocate(200);
  EXPECT_EQ(LogCapture::take().back(), "2 16  - size matches request, returning untouched");
  EXPECT_EQ(layout_of(block), (Layout{100, -200, 212})) << "live only once it is stored";
  EXPECT_EQ(store({}, filled(196, 4)), whole);
  EXPECT_EQ(layout_of(block), (Layout{100, 200, 212}));
  EXPECT_EQ(mdb::mark_query(block), BlockClass::used) << "only searches and frees reclassify";
}

TEST(Objects, FreeMergesWithFreeNeighboursAndReclassifies) {
  struct Case {
    Layout before;
    std::uint32_t offset;
    Layout after;
    BlockClass block_class;
  };
  const Case cases[] = {
      {{-412, 100}, 412, {-512}, BlockClass::empty},
      {{-100, 40, -60, 312}, 100, {-200, 312}, BlockClass::used},
      {{100, 128, 284}, 100, {100, -128, 284}, BlockClass::used},
      {{100, 126, 286}, 100, {100, -126, 286}, BlockClass::full},
      {{4, 504, 4}, 0, {-4, 504, 4}, BlockClass::full},
  };
  TestMdb mdb;
  const std::uint32_t block = mdb.data_first();
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.before));
    put_layout(block, c.before, BlockClass::full);
    free_object({block, c.offset});
    EXPECT_EQ(layout_of(block), c.after);
    EXPECT_EQ(mdb::mark_query(block), c.block_class);
  }
}

TEST(Objects, ResizePrefersItsOwnBlock) {
  TestMdb mdb;
  const std::uint32_t block = mdb.data_first();
  put_layout(block, {-200, 60, 252}, BlockClass::full);
  put_layout(block + 1, {-300, 212});
  struct Step {
    ObjectReference from;
    std::size_t length;
    ObjectReference to;
    Layout layout;  // of the first block
  };
  const Step steps[] = {
      {{block, 200}, 96, {block, 160}, {-160, 100, 252}},  // grows into the gap before it
      {{block, 160}, 36, {block, 220}, {-220, 40, 252}},   // and shrinks to its end
      {{block, 220}, 256, {block, 0}, {260, 252}},         // takes all that is free, exactly
      {{block, 0}, 280, {block + 1, 16}, {-260, 252}},     // and moves away when that is not enough
      {{block, 260}, 400, {block, 108}, {-108, 404}},      // leaves an Empty block, and starts it anew
  };
  for (const Step& step : steps) {
    EXPECT_EQ(store(step.from, filled(step.length, 7)), step.to);
    EXPECT_EQ(layout_of(block), step.layout);
  }
  EXPECT_EQ(mdb::mark_query(block), BlockClass::used);
}

TEST(Objects, LoadTakesOnlyALiveObjectThatStartsThere) {
  TestMdb mdb;
  const std::uint32_t block = mdb.data_first();
  put_layout(block, {100, -112, 300});
  set_word(block, 40, 20);  // what looks like an object inside a record
  EXPECT_EQ(record_of({block, 212}), filled(296, 0xEE));
  EXPECT_EQ(thrown_by([&] { record_of({block}); }), "nullobj: Attempt to read null object");
  for (const std::uint32_t offset : {100u, 40u, 1u, 510u, 512u, 516u, 0xFFFF'FFFEu})
    EXPECT_EQ(thrown_by([&] { record_of({block, offset}); }), "need_repair: Attempt to load placeholder");
}

TEST(Objects, DamageIsReportedNotFollowed) {
  TestMdb mdb;
  const std::uint32_t block = mdb.data_first();
  const std::string report = text::concat("Object at offset 100 in block ", block, " has zero length");
  const std::string line =
      text::concat("8 8 block ", block, " offset 100 contained zero-length object which should not exist");
  for (const std::uint32_t header : {0u, 1u, 3u, 414u, 415u, 0x7FFF'FFFEu, 0xFFFF'FFFEu}) {
    SCOPED_TRACE(header);
    put_layout(block, {100, 100, 100, -212});
    mdb::ObjectHandle handle = mdb::object_load({block, 200});
    set_word(block, 100, header);
    EXPECT_EQ(record_of({block, 0}).size(), 96u);
    handle.data = mdb::read_block_copy(block);
    LogCapture::take();
    const Bytes before = contents();
    const std::function<void()> calls[] = {
        [&] {
          mdb::BlockBuffer scratch;
          mdb::object_view({block, 100}, scratch);
        },
        [&] {
          mdb::object_load({block, 200});
        },
        [] { mdb::alloc_space(0, 40); },
        [&] { mdb::classify_block(handle); },
        [&] {
          mdb::Transaction transaction;
          mdb::object_free(handle);
        },
        [&] {
          free_object({block, 0});
        },  // the damage is its neighbour
    };
    for (const auto& call : calls)
      EXPECT_EQ(thrown_by(call), "consistency: " + report);
    EXPECT_EQ(std::ranges::count(LogCapture::take(), line), 1);
    EXPECT_TRUE(contents() == before);
  }
  put_layout(block, {500, -12});
  set_word(block, 500, 10 | 1);  // two bytes are left: no room for a header
  EXPECT_EQ(thrown_by([] { mdb::alloc_space(0, 40); }),
            text::concat("consistency: Object at offset 510 in block ", block, " has zero length"));
}

TEST(Objects, SizesThatCannotBeAreRefusedWithoutATrace) {
  TestMdb mdb;
  const ObjectReference kept = store({}, filled(60, 1));
  const std::string odd = "internal: Attempted to allocate an odd-sized object";
  const Bytes before = contents();
  for (const ObjectReference reference : {kept, ObjectReference{}}) {
    for (const std::size_t length : {7u, 61u, 303u})
      EXPECT_EQ(thrown_by([&] { store(reference, filled(length, 1)); }), odd);
    for (const std::size_t length : {509u, 510u, 4000u})
      EXPECT_EQ(thrown_by([&] { store(reference, filled(length, 1)); }),
                "dbnospace: No free blocks in meta database");
  }
  EXPECT_TRUE(contents() == before);

  put_layout(kept.block, {100, -200, 212});
  const auto split = [&](std::uint32_t size) {
    mdb::ObjectHandle handle{kept.block, 100, mdb::read_block_copy(kept.block)};
    mdb::object_split(handle, size);
  };
  for (const std::uint32_t size : {0u, 198u, 201u, 202u})
    EXPECT_EQ(thrown_by([&] { split(size); }), "internal: Attempted to split undersized object");
  EXPECT_EQ(thrown_by([&] { split(39); }), odd);
}

// With so little room left in the journal not even freeing the object again would fit.
TEST(Objects, AStoreThatFailsInACallersTransactionLeavesNothingInIt) {
  TestMdb mdb({.journal_bytes = 8192});
  const ObjectReference kept = store({}, filled(60, 1));
  const Layout before = layout_of(kept.block);
  mdb::Transaction callers;
  const Bytes filler(4);
  while (mdb::journal_free() > 71)
    mdb::transaction_update(filler, std::uint64_t{mdb.data_first() + 8} * mdb::block_size());
  EXPECT_EQ(thrown_by([] { store({}, filled(200, 2)); }), "transact: Transaction log full");
  callers.end();
  EXPECT_EQ(layout_of(kept.block), before);
}

}  // namespace
}  // namespace mdb_test
