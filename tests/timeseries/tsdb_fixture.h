// A time series database on a simulated disk, for tests.

#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "common/bytes.h"
#include "observe.h"
#include "reader.h"
#include "simulation/simulated_system.h"
#include "small_pair.h"
#include "timeseries/backing_store.h"
#include "timeseries/block_map.h"
#include "timeseries/chain_sets.h"
#include "timeseries/chains.h"
#include "timeseries/create_tsdb.h"
#include "timeseries/header.h"

namespace tsdb_test {

using reader::Entries;
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

class TsdbTest : public testing::Test {
 protected:
  static constexpr const char* path = "/db/main.tsdb";

  TsdbTest() {
    sim.add_directory("/db");
    sim.set_free_bytes(std::uint64_t{1} << 30);
  }
  ~TsdbTest() override { tsdb::tsdb_close(); }

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

  // What has become durable of the file.
  static reader::Tsdb durable_on(const simulation::SimulatedSystem& system) {
    reader::Bytes bytes;
    for (const std::byte byte : system.durable_contents(path))
      bytes.push_back(std::to_integer<std::uint8_t>(byte));
    return reader::Tsdb(std::move(bytes));
  }

  // What is committed of a chain: the durable one of the highest timestamp among those of the kind whose line
  // of the chain table has a valid CRC.
  reader::Chain committed(ChainKind kind) const {
    const reader::Tsdb tsdb = durable_on(sim);
    reader::Chain newest;
    for (std::uint32_t set = 0; set < tsdb.set_count; ++set) {
      auto chain = tsdb.chain(static_cast<reader::Kind>(tsdb::kind_index(kind)), set);
      if (newest.blocks.empty() || chain.timestamp > newest.timestamp)
        newest = std::move(chain);
    }
    return newest;
  }

  simulation::SimulatedSystem sim;
  simulation::Installed installed{sim};

 private:
  LogCapture log;
};

}  // namespace tsdb_test
