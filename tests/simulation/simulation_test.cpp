#include "simulation/simulated_system.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>

namespace {

using platform::Sharing;
using simulation::Kept;
using simulation::Operation;
using Sectors = std::vector<int>;

std::vector<std::byte> sectors_of(std::size_t count, int value) {
  return std::vector<std::byte>(count * simulation::sector_size, static_cast<std::byte>(value));
}

class Simulation : public testing::Test {
 protected:
  Simulation() {
    sim.add_directory("/db");
    reopen();
  }

  // A file of four sectors of zeros.
  void reopen() {
    sim.add_file("/db/file", sectors_of(4, 0));
    file = std::move(sim.open("/db/file", Sharing::all).value());
  }

  void write(std::uint64_t sector, std::size_t count, int value) {
    EXPECT_TRUE(file->write_at(sector * simulation::sector_size, sectors_of(count, value)).ok());
  }

  // The first byte of each sector after a cut.
  Sectors after(simulation::Policy policy) {
    sim.power_cut(policy);
    const auto bytes = sim.contents("/db/file");
    Sectors values;
    for (std::size_t at = 0; at < bytes.size(); at += simulation::sector_size)
      values.push_back(std::to_integer<int>(bytes[at]));
    return values;
  }

  simulation::SimulatedSystem sim;
  std::unique_ptr<platform::File> file;
};

TEST_F(Simulation, WhatWasNotSyncedIsLostOrKeptAsTold) {
  const std::pair<simulation::Policy, Sectors> cases[] = {{{Kept::nothing}, {1, 0, 0, 0}},
                                                          {{Kept::everything}, {1, 2, 0, 0, 3}},
                                                          {{Kept::all_but_one, 0}, {1, 0, 0, 0, 3}},
                                                          {{Kept::all_but_one, 3}, {1, 2, 0, 0}}};
  for (const auto& [policy, expected] : cases) {
    reopen();
    write(0, 1, 1);
    EXPECT_TRUE(file->sync().ok());
    write(1, 1, 2);
    write(4, 1, 3);
    EXPECT_EQ(after(policy), expected);
  }
  reopen();
  write(0, 1, 1);
  sim.inject({.operation = Operation::sync});
  EXPECT_EQ(file->sync().code, 5u);
  write(1, 1, 2);
  EXPECT_TRUE(file->sync().ok());
  EXPECT_EQ(after({}), (Sectors{0, 2, 0, 0})) << "a later sync does not make good a failed one";
}

TEST_F(Simulation, ARandomCutKeepsWholeWritesOrTearsThemAsItsSeedSays) {
  const auto outcome = [this](simulation::Policy policy) {
    reopen();
    write(0, 2, 1);
    write(1, 3, 2);
    return after(policy);
  };
  std::set<Sectors> whole, torn;
  for (std::uint64_t seed = 0; seed < 400; ++seed) {
    whole.insert(outcome({Kept::random_writes, seed}));
    const auto [same, is_new] = torn.insert(outcome({Kept::random_sectors, seed}));
    EXPECT_EQ(outcome({Kept::random_sectors, seed}), *same);
  }
  EXPECT_EQ(whole, (std::set<Sectors>{{0, 0, 0, 0}, {1, 1, 0, 0}, {0, 2, 2, 2}, {1, 2, 2, 2}}));
  EXPECT_EQ(torn.size(), 2u * 3 * 2 * 2) << "the second sector may be between the two";
}

TEST_F(Simulation, ANewNameSurvivesOnlyAfterItsDirectoryIsSynced) {
  ASSERT_TRUE(sim.create_new("/db\\kept").ok());
  ASSERT_TRUE(sim.sync_directory_of("/db\\kept").ok());
  ASSERT_TRUE(sim.create_new("/db/lost").value()->sync().ok());
  sim.power_cut({});
  EXPECT_TRUE(sim.has_file("/db/kept"));
  EXPECT_FALSE(sim.has_file("/db/lost"));
}

TEST_F(Simulation, StoresInAMappingAreSeenAtOnceAndDurableAfterBothSyncs) {
  const auto mapping = std::move(file->map(700, 100).value());
  mapping->bytes()[0] = std::byte{9};
  EXPECT_EQ(sim.contents("/db/file")[700], std::byte{9});
  for (const int durable : {0, 9}) {  // only a sync of the file after one of the mapping counts
    EXPECT_TRUE(file->sync().ok());
    EXPECT_EQ(sim.durable_contents("/db/file")[700], static_cast<std::byte>(durable));
    EXPECT_TRUE(mapping->sync().ok());
    EXPECT_EQ(sim.durable_contents("/db/file")[700], static_cast<std::byte>(durable));
  }
  write(1, 1, 4);
  EXPECT_EQ(mapping->bytes()[0], std::byte{4});
}

TEST_F(Simulation, AMappedStoreMayReachTheMediumBeforeItIsSynced) {
  sim.write_back_mapped_stores(1);
  std::set<int> outcomes;
  for (std::uint64_t seed = 0; seed < 40; ++seed) {
    reopen();
    const auto mapping = std::move(file->map(0, 512).value());
    for (int value = 1; value <= 3; ++value) {
      mapping->bytes()[0] = static_cast<std::byte>(value);
      (void)sim.is_directory("/db");
    }
    outcomes.insert(after({Kept::random_sectors, seed})[0]);
  }
  EXPECT_EQ(outcomes, (std::set<int>{0, 1, 2, 3}));
}

TEST_F(Simulation, FaultsWaitForTheirOperationAndAreCounted) {
  const auto codes = [&] {
    std::vector<std::uint32_t> found;
    for (int i = 0; i < 3; ++i) {
      found.push_back(file->write_at(0, sectors_of(1, 1)).status().code);
      found.push_back(file->sync().code);
    }
    return found;
  };
  sim.inject({.operation = Operation::write, .path_end = "file", .occurrence = 2, .code = ENOSPC});
  EXPECT_EQ(codes(), (std::vector<std::uint32_t>{0, 0, ENOSPC, 0, 0, 0}));
  sim.inject({.operation = Operation::sync, .path_end = "other"});
  sim.inject({.occurrence = 2, .lasting = true});
  EXPECT_EQ(codes(), (std::vector<std::uint32_t>{0, 5, 5, 5, 5, 5}));
  sim.clear_faults();
  EXPECT_EQ(codes(), std::vector<std::uint32_t>(6));
  EXPECT_EQ(sim.count(Operation::write, "file"), 9u);
}

TEST_F(Simulation, WritesAreCutShortOnRequestAndByAFullDisk) {
  const auto written = [&](std::uint64_t position) {
    const auto result = file->write_at(position, sectors_of(1, 1));
    return result.ok() ? std::to_string(result.value()) : "code " + std::to_string(result.status().code);
  };
  sim.inject({.operation = Operation::write, .transfer_limit = 10});
  EXPECT_EQ(written(0), "10");
  EXPECT_EQ(std::ranges::count(sim.contents("/db/file"), std::byte{1}), 10);
  sim.set_free_bytes(100);
  EXPECT_EQ(written(2048), "100");
  EXPECT_EQ(written(2148), "code " + std::to_string(ENOSPC));
  EXPECT_EQ(written(0), "512") << "bytes in place need no room";
  EXPECT_EQ(file->map(2048, 512).status().code, std::uint32_t{ENOSPC});
}

TEST_F(Simulation, HandlesOfBeforeACutAreDeadAndHoldNoLock) {
  auto locked = std::move(sim.open("/db/file", Sharing::none).value());
  EXPECT_FALSE(sim.open("/db/file", Sharing::readers).ok());
  EXPECT_TRUE(sim.open("/db/file", Sharing::all).ok());
  auto mapping = std::move(file->map(0, 512).value());
  sim.power_cut({Kept::everything});
  mapping->bytes()[0] = std::byte{7};
  EXPECT_FALSE(mapping->sync().ok());
  EXPECT_FALSE(locked->write_at(0, sectors_of(1, 1)).ok());
  const auto again = sim.open("/db/file", Sharing::none);
  ASSERT_TRUE(again.ok());
  locked = nullptr;
  mapping = nullptr;
  EXPECT_FALSE(sim.open("/db/file", Sharing::none).ok()) << "the dead handle must not drop the new lock";
  EXPECT_EQ(sim.contents("/db/file")[0], std::byte{0});
}

}  // namespace
