// Every byte of a small pair is damaged once in each of three ways. Damage that is not found out must be
// harmless:
//
//   W1  No byte of the journal makes a state that never was: what is read is what some number of the
//       transactions in it leave behind.
//   W2  A pair in which the inspection finds nothing wrong opens, and every record in it can be read: all
//       that were there, but for the last transactions of a journal that was hit.
//
// Takes every 31st byte, or QUENOR_SWEEP_STRIDE=1 each of them.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <optional>

#include "common/errors.h"
#include "databases.h"
#include "inspect/inspection.h"

namespace {

using fuzz::Bytes;
using fuzz::Contents;
using fuzz::Files;
using fuzz::Records;
using mdb_test::journal_path;
using mdb_test::mdb_path;

std::size_t stride() {
  const char* given = std::getenv("QUENOR_SWEEP_STRIDE");
  return given != nullptr ? std::max<std::size_t>(1, std::strtoull(given, nullptr, 10)) : 31;
}

// Nothing when the database does not open.
std::optional<Contents> contents_of(const Files& files) {
  const fuzz::Computer computer(files);
  try {
    fuzz::open_database();
  } catch (const error::Exception&) {
    return std::nullopt;
  }
  return fuzz::read_everything();
}

bool looks_sound(const Files& files) {
  const fuzz::Computer computer(files);
  return inspect::inspect_pair("/db", std::nullopt).verdict() == inspect::Verdict::sound;
}

// Calls check(files) with every damaged version of one file.
template <typename Check>
void sweep(Files files, const char* path, Check check) {
  Bytes& bytes = files.at(path);
  for (std::size_t offset = 0; offset < bytes.size() && !testing::Test::HasFailure(); offset += stride()) {
    const std::byte sound = bytes[offset];
    // One bit flipped, and the two values that are most often mistaken for something else.
    const std::byte flipped = sound ^ static_cast<std::byte>(1U << offset % 8);
    for (const std::byte value : {flipped, std::byte{0x00}, std::byte{0xFF}}) {
      SCOPED_TRACE(text::concat("offset ", offset, ", byte ", std::to_integer<int>(value)));
      bytes[offset] = value;
      if (value != sound)
        check(files);
    }
    bytes[offset] = sound;
  }
}

class ByteSweep : public testing::TestWithParam<mdb_test::MdbShape> {
 protected:
  const Files files_ = fuzz::make_files(GetParam());
};

// The states that a journal cut short at any place leaves.
std::vector<Records> states_on_the_way(Files files) {
  std::vector<Records> states;
  for (std::size_t end = files[journal_path].size() - 8; end >= 48; end -= 8) {
    std::fill_n(files[journal_path].begin() + static_cast<std::ptrdiff_t>(end), 8, std::byte{0});
    Records records = contents_of(files).value().records;
    if (states.empty() || states.back() != records)
      states.push_back(std::move(records));
  }
  return states;
}

TEST_P(ByteSweep, OfTheJournalMakesNoStateThatNeverWas) {
  if (!files_.contains(journal_path))
    GTEST_SKIP() << "the journal lies in the database";
  const std::vector<Records> states = states_on_the_way(files_);
  ASSERT_GE(states.size(), 2U);
  ASSERT_EQ(contents_of(files_).value().records.size(), fuzz::node_count);
  sweep(files_, journal_path, [&states](const Files& files) {
    if (const auto contents = contents_of(files)) {
      EXPECT_TRUE(contents->is_whole);
      EXPECT_NE(std::ranges::find(states, contents->records), states.end());  // W1
    }
  });
}

constexpr auto key_of = [](const auto& record) { return record.first; };

TEST_P(ByteSweep, OfTheDatabaseIsFoundOutOrHarmless) {
  ASSERT_TRUE(looks_sound(files_));
  const Records sound = contents_of(files_).value().records;
  const std::size_t most_missing = !files_.contains(journal_path) ? fuzz::unapplied_nodes : 0;
  sweep(files_, mdb_path, [&](const Files& files) {
    const std::optional<Contents> contents = contents_of(files);
    if (!looks_sound(files))
      return;
    ASSERT_TRUE(contents);  // W2
    EXPECT_TRUE(contents->is_whole);
    EXPECT_TRUE(std::ranges::includes(sound, contents->records, {}, key_of, key_of));
    EXPECT_GE(contents->records.size(), sound.size() - most_missing);
  });
}

INSTANTIATE_TEST_SUITE_P(Shapes, ByteSweep, testing::ValuesIn(fuzz::shapes),
                         [](const auto& shape) { return "Shape" + std::to_string(shape.index); });

TEST(ByteSweepOfTheTimeSeries, EndsWithAVerdict) {
  const Files sound = fuzz::make_files(fuzz::shapes[0]);
  ASSERT_TRUE(looks_sound(sound));
  int damaged_count = 0;
  sweep(sound, support::tsdb_path, [&](const Files& files) { damaged_count += looks_sound(files) ? 0 : 1; });
  EXPECT_GT(damaged_count, 0);
}

}  // namespace
