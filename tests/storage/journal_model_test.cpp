// The journal against a plain array of bytes.

#include <random>

#include "storage_fixture.h"

namespace {

// What the store should hold: committed bytes, and a copy for each open transaction.
struct Model {
  Bytes committed;
  std::vector<Bytes> open;

  Bytes& top() { return open.empty() ? committed : open.back(); }
};

struct Shape {
  std::uint32_t block_size;
  std::uint32_t journal_bytes;
  std::uint32_t longest_update;
};

class JournalModelTest : public StorageTest, public testing::WithParamInterface<Shape> {
 protected:
  static constexpr std::uint32_t store_bytes = 1 << 16;

  std::uint32_t up_to(std::uint32_t limit) { return static_cast<std::uint32_t>(random_() % (limit + 1)); }

  void update() {
    Bytes data(up_to(GetParam().longest_update));
    for (auto& b : data)
      b = static_cast<std::byte>(random_());
    const std::uint32_t offset = up_to(store_bytes - static_cast<std::uint32_t>(data.size()));
    try {
      mdb::transaction_update(data, offset);
    } catch (const mdb::error_transact&) {
      return;
    }
    std::ranges::copy(data, model_.top().begin() + offset);
  }

  void end(bool lazy) {
    try {
      mdb::transaction_end(lazy || model_.open.size() > 1);
    } catch (const mdb::error_internal& e) {
      ASSERT_EQ(e.message(), "After journal flip; no space for transend.");
      mdb::transaction_abort();
      model_.open.pop_back();
      return;
    }
    Bytes ended = std::move(model_.open.back());
    model_.open.pop_back();
    model_.top() = std::move(ended);
  }

  void abort() {
    mdb::transaction_abort();
    model_.open.pop_back();
  }

  // A process that dies with transactions open loses those and nothing else.
  void die_and_reopen() {
    model_.open.clear();
    if (random_() % 2 == 0)
      mdb::journal_shutdown();
    forget();
    open();
    EXPECT_EQ(sim_.contents(store_path), model_.committed);
  }

  void step() {
    const std::uint32_t dice = up_to(99);
    if (model_.open.empty()) {
      if (dice < 4)
        return die_and_reopen();
      if (dice < 8)
        return pass_seconds(1 + up_to(2));
      if (dice < 10)
        return mdb::journal_flip(up_to(1) == 1);
      mdb::transaction_begin();
      model_.open.push_back(model_.committed);
      return;
    }
    if (dice < 50)
      return update();
    if (dice < 58 && model_.open.size() < 4) {
      mdb::transaction_begin();
      model_.open.push_back(model_.top());
      return;
    }
    if (dice < 90)
      return end(dice < 85);
    if (dice < 98)
      return abort();
    die_and_reopen();
  }

  void compare() {
    const std::uint32_t block = up_to(store_bytes / block_size_ - 1);
    const auto part = [&](Bytes& bytes) {
      return std::span(bytes).subspan(std::size_t{block} * block_size_, block_size_);
    };
    mdb::BlockBuffer scratch;
    ASSERT_TRUE(std::ranges::equal(mdb::read_block_copy(block).bytes(), part(model_.top())));
    ASSERT_TRUE(std::ranges::equal(mdb::view_block(block, scratch), part(model_.top())));
    ASSERT_TRUE(std::ranges::equal(mdb::cache_get_block(block), part(model_.committed)));
    Bytes range(1 + up_to(3 * block_size_));
    const std::uint32_t offset = up_to(store_bytes - static_cast<std::uint32_t>(range.size()));
    mdb::read_bytes_current(range, offset);
    ASSERT_TRUE(std::ranges::equal(range, std::span(model_.top()).subspan(offset, range.size())));
  }

  std::mt19937_64 random_;
  Model model_;
};

TEST_P(JournalModelTest, AgreesWithAPlainArray) {
  const std::uint64_t seed = 20'261'122;
  SCOPED_TRACE("seed " + std::to_string(seed));
  random_.seed(seed);
  mdb::cache_set_limit(20);
  create(store_bytes, GetParam().journal_bytes, GetParam().block_size);
  model_.committed.resize(store_bytes);
  open();
  for (int i = 0; i < 4'000 && !HasFatalFailure(); ++i) {
    SCOPED_TRACE("step " + std::to_string(i));
    step();
    compare();
  }
  forget();
  mdb::cache_set_limit(8192);
}

INSTANTIATE_TEST_SUITE_P(Shapes, JournalModelTest,
                         testing::Values(Shape{512, 8192, 100}, Shape{64, 4096, 300},
                                         Shape{4096, 65'536, 6'000}, Shape{512, 1'000, 60}));

}  // namespace
