// The journal against a plain array of bytes, with memory that runs out now and then.

#include <new>
#include <random>

#include "scarce_memory.h"
#include "storage_fixture.h"

namespace {

struct Shape {
  std::uint32_t block_size;
  std::uint32_t journal_bytes;
  std::uint32_t longest_update;
};

class JournalModelTest : public StorageTest, public testing::WithParamInterface<Shape> {
 protected:
  static constexpr std::uint32_t store_bytes = 1 << 16;

  std::uint32_t up_to(std::uint32_t limit) { return static_cast<std::uint32_t>(random_() % (limit + 1)); }

  // Half of what is done is done to the first blocks, so that they collect many updates.
  std::uint32_t often_few_blocks(std::uint32_t limit) {
    return up_to(1) == 0 ? limit : std::max(4 * block_size_, GetParam().longest_update);
  }

  void update() {
    Bytes data(up_to(GetParam().longest_update));
    std::ranges::generate(data, [&] { return static_cast<std::byte>(random_()); });
    const std::uint32_t offset =
        up_to(often_few_blocks(store_bytes) - static_cast<std::uint32_t>(data.size()));
    if (succeeds([&] { mdb::transaction_update(data, offset); }))
      std::ranges::copy(data, states_.back().begin() + offset);
  }

  void update_whole_block() {
    const std::uint32_t block = up_to(often_few_blocks(store_bytes) / block_size_ - 1);
    mdb::BlockBuffer copy = mdb::read_block_copy(block);
    std::ranges::generate(copy.bytes().first(8), [&] { return static_cast<std::byte>(random_()); });
    const Bytes bytes(copy.bytes().begin(), copy.bytes().end());
    if (succeeds([&] { mdb::write_block_copy(block, std::move(copy)); }))
      std::ranges::copy(bytes, states_.back().begin() + std::ptrdiff_t{block} * block_size_);
  }

  // False when there was no room for it, in the journal or in memory.
  template <typename Call>
  bool succeeds(Call call) {
    const ScarceMemory some(up_to(9) == 0 ? static_cast<int>(up_to(3)) : -1);
    try {
      call();
    } catch (const mdb::error_transact&) {
      return false;
    } catch (const std::bad_alloc&) {
      return false;
    }
    return true;
  }

  void begin() {
    if (succeeds([] { mdb::transaction_begin(); }))
      states_.push_back(states_.back());
  }

  void end(bool lazy) {
    try {
      if (!succeeds([&] { mdb::transaction_end(lazy || states_.size() > 2); }))
        return mdb::transaction_is_open() ? abort() : committed_without_memory();
    } catch (const mdb::error_internal& e) {
      ASSERT_EQ(e.message(), "After journal flip; no space for transend.");
      return abort();
    }
    states_.erase(states_.end() - 2);
  }

  // It is in the journal: either all goes on, or nothing does until the store is opened anew.
  void committed_without_memory() {
    states_.erase(states_.end() - 2);
    try {
      const mdb::Transaction none;
    } catch (const std::bad_alloc&) {
      die_and_reopen();
    }
  }

  void abort() {
    mdb::transaction_abort();
    states_.pop_back();
  }

  // A process that dies with transactions open loses those and nothing else.
  void die_and_reopen() {
    states_.resize(1);
    if (random_() % 2 == 0)
      mdb::journal_shutdown();
    drop_databases();
    open();
    EXPECT_EQ(sim.contents(store_path), states_.front());
  }

  void step() {
    const std::uint32_t dice = up_to(99);
    if (states_.size() == 1) {
      if (dice < 4)
        return die_and_reopen();
      if (dice < 8)
        return pass_seconds(1 + up_to(2));
      return dice < 10 ? mdb::journal_flip(up_to(1) == 1) : begin();
    }
    if (dice < 6)
      return update_whole_block();
    if (dice < 60)
      return update();
    if (dice < 70 && states_.size() < 5)
      return begin();
    if (dice < 87)
      return end(dice < 84);
    return dice < 98 ? abort() : die_and_reopen();
  }

  void compare() {
    const std::uint32_t block = up_to(often_few_blocks(store_bytes) / block_size_ - 1);
    const auto part = [&](Bytes& bytes) {
      return std::span(bytes).subspan(std::size_t{block} * block_size_, block_size_);
    };
    mdb::BlockBuffer scratch;
    ASSERT_TRUE(std::ranges::equal(mdb::read_block_copy(block).bytes(), part(states_.back())));
    ASSERT_TRUE(std::ranges::equal(mdb::view_block(block, scratch), part(states_.back())));
    ASSERT_TRUE(std::ranges::equal(mdb::cache_get_block(block), part(states_.front())));
    Bytes range(1 + up_to(3 * block_size_));
    const std::uint32_t offset = up_to(store_bytes - static_cast<std::uint32_t>(range.size()));
    mdb::read_bytes_current(range, offset);
    ASSERT_TRUE(std::ranges::equal(range, std::span(states_.back()).subspan(offset, range.size())));
  }

  static constexpr std::uint64_t seed = 20'261'122;
  std::mt19937_64 random_{seed};
  // What the store should hold: committed bytes, and a copy for each open transaction.
  std::vector<Bytes> states_ = {Bytes(store_bytes)};
};

TEST_P(JournalModelTest, AgreesWithAPlainArray) {
  block_size_ = GetParam().block_size;
  mdb::cache_set_limit(20);
  create(store_bytes, GetParam().journal_bytes);
  open();
  for (int i = 0; i < 10'000 && !HasFatalFailure(); ++i) {
    SCOPED_TRACE(testing::Message() << "seed " << seed << ", step " << i);
    step();
    compare();
    EXPECT_LE(mdb::cache_statistics().entries, 20U);
  }
}

// What is taken back leaves nothing behind that grows.
TEST_F(StorageTest, AbortsTakeNoMemory) {
  create(1 << 16, 1 << 16);
  open();
  const mdb::Transaction whole;
  write("kept", 0);
  largest_allocation();
  for (int i = 0; i < 10'000; ++i) {
    const mdb::Transaction part;
    for (const std::uint64_t offset : {512U, 1024U, 516U})
      write("gone", offset);
  }
  EXPECT_LT(largest_allocation(), 4096U);
}

INSTANTIATE_TEST_SUITE_P(Shapes, JournalModelTest,
                         testing::Values(Shape{512, 8192, 100}, Shape{64, 4096, 300},
                                         Shape{4096, 65'536, 6'000}, Shape{512, 1'000, 60}));

}  // namespace
