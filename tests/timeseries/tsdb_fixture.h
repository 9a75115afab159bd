// A time series database on a simulated disk, for tests.

#pragma once

#include <gmock/gmock.h>

#include <algorithm>
#include <functional>
#include <map>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "common/bytes.h"
#include "common/crc32.h"
#include "small_pair.h"
#include "timeseries/backing_store.h"
#include "timeseries/block_map.h"
#include "timeseries/chain_sets.h"
#include "timeseries/chains.h"
#include "timeseries/create_tsdb.h"
#include "timeseries/header.h"

namespace tsdb_test {

// The words of those that are not all zero, by their numbers.
using Entries = std::map<std::uint64_t, std::vector<std::uint32_t>>;
using simulation::Operation;
using support::LogCapture;
using testing::Each;
using testing::ElementsAre;
using tsdb::ChainKind;
using tsdb::current_chain;

// Expects of each call an error of exactly this class with exactly this text, as thrown_by() gives them.
using Refusal = std::pair<const char*, std::function<void()>>;
inline void expect_refusals(std::initializer_list<Refusal> refusals) {
  for (const auto& [error, call] : refusals)
    EXPECT_EQ(support::thrown_by(call), error);
}

// The same numbers from the same seed on every platform.
using Random = std::mt19937;

// 0 to limit - 1.
inline std::uint32_t below(Random& random, std::uint64_t limit) {
  return static_cast<std::uint32_t>(random() % limit);
}

// A chain as it stands in the file, found without the code that wrote it.
struct StoredChain {
  StoredChain() = default;
  // Follows the chain from its line in the chain table; one whose line has a wrong CRC is empty. A block that
  // is not as it must be is thrown.
  StoredChain(std::span<const std::byte> file, ChainKind kind, std::uint32_t set) {
    const tsdb::ChainTraits& traits = tsdb::chain_traits[tsdb::kind_index(kind)];
    const std::uint64_t block_size = bytes::load_u32(file, 8), set_count = bytes::load_u32(file, 20);
    const auto line = file.subspan(24 + 16 * (tsdb::kind_index(kind) * set_count + set), 16);
    if (bytes::load_u32(line, 12) != security::crc32(line.first(12)))
      return;
    timestamp = bytes::load_u64(line, 0);
    std::uint32_t next_in_run = 0;
    std::uint64_t entry = 0;
    for (std::uint32_t number = bytes::load_u32(line, 8); number != 0;) {
      if ((number + 1) * block_size > file.size())
        throw std::runtime_error("broken block");
      const auto block = file.subspan(number * block_size, block_size);
      const std::uint32_t in_run = bytes::load_u32(block, 12);
      if (bytes::load_u32(block, 0) != traits.magic || bytes::load_u32(block, 8) != set ||
          (in_run != 0 && in_run != next_in_run))
        throw std::runtime_error("broken block");
      next_in_run = in_run + 1;
      const std::uint32_t width = traits.entry_size_bytes;
      for (std::uint64_t at = 16; at + width <= block_size; at += width, ++entry) {
        std::vector<std::uint32_t> words;
        for (std::uint32_t word = 0; word < width; word += 4)
          words.push_back(bytes::load_u32(block, at + word));
        if (std::ranges::count(words, 0U) != std::ssize(words))
          used[entry] = words;
      }
      blocks.push_back(number);
      number = bytes::load_u32(block, 4);
    }
  }

  std::uint64_t timestamp = 0;
  std::vector<std::uint32_t> blocks;
  Entries used;
};

class TsdbTest : public testing::Test, public support::Computer {
 protected:
  static constexpr const char* path = "/db/main.tsdb";

  TsdbTest() { sim.set_free_bytes(std::uint64_t{1} << 30); }

  // Opens a file of such blocks as the store.
  void open_store(std::uint32_t block_size, std::size_t block_count = 0) {
    tsdb::tsdb_close();
    sim.add_file(path, std::vector<std::byte>(block_count * block_size));
    tsdb::btb_open(path);
    tsdb::btb_set_block_size(block_size);
  }

  // A database of `block_count` blocks with chains for `check_count` checks; for none, chains without runs.
  void make_database(std::uint32_t block_count, std::uint32_t chain_sets, std::uint32_t check_count,
                     std::uint32_t block_size = 256) {
    tsdb::tsdb_close();
    sim.add_file(path, {});
    support::create_tsdb(
        path, {block_size, block_count, chain_sets, {check_count, check_count, check_count, check_count}});
    LogCapture::take();
  }

  // What is committed of a chain: the durable one of the highest timestamp among those of the kind. So many
  // of the others may be broken.
  static StoredChain committed(const simulation::SimulatedSystem& system, ChainKind kind,
                               std::uint32_t most_broken = 0) {
    const auto file = system.durable_contents(path);
    StoredChain newest;
    std::uint32_t broken = 0;
    for (std::uint32_t set = 0; set < bytes::load_u32(file, 20); ++set) {
      try {
        StoredChain chain(file, kind, set);
        if (newest.blocks.empty() || chain.timestamp > newest.timestamp)
          newest = std::move(chain);
      } catch (const std::runtime_error&) {
        broken += 1;
      }
    }
    EXPECT_LE(broken, most_broken);
    return newest;
  }
};

}  // namespace tsdb_test
