#include "simulation/simulated_system.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <set>

namespace {

using platform::Sharing;
using simulation::Kept;
using simulation::Operation;
using simulation::SimulatedSystem;

std::vector<std::byte> filled(std::size_t size, int value) {
  return std::vector<std::byte>(size, static_cast<std::byte>(value));
}

std::vector<std::byte> one_sector(int value) {
  return filled(simulation::sector_size, value);
}

class Simulation : public testing::Test {
 protected:
  Simulation() {
    sim.add_directory("/db");
    reopen(4);
  }

  // A file of so many sectors of zeros.
  void reopen(std::size_t sectors) {
    sim.add_file("/db/file", filled(sectors * simulation::sector_size, 0));
    file = std::move(sim.open("/db/file", Sharing::all).value());
  }

  void write(std::uint64_t position, const std::vector<std::byte>& bytes) {
    ASSERT_EQ(file->write_at(position, bytes).value(), bytes.size());
  }

  // The first byte of each sector after a cut.
  std::vector<int> sectors_after(simulation::Policy policy) {
    sim.power_cut(policy);
    const auto bytes = sim.contents("/db/file");
    std::vector<int> values;
    for (std::size_t at = 0; at < bytes.size(); at += simulation::sector_size) {
      values.push_back(std::to_integer<int>(bytes[at]));
    }
    return values;
  }

  SimulatedSystem sim;
  std::unique_ptr<platform::File> file;
};

TEST_F(Simulation, WhatWasNotSyncedIsLostOrKeptAsTold) {
  write(0, one_sector(1));
  ASSERT_TRUE(file->sync().ok());
  write(512, one_sector(2));
  write(2048, one_sector(3));
  EXPECT_EQ(sim.contents("/db/file").size(), 2560u);
  EXPECT_EQ(sectors_after({Kept::nothing}), (std::vector<int>{1, 0, 0, 0}));

  reopen(4);
  write(512, one_sector(2));
  EXPECT_EQ(sectors_after({Kept::everything}), (std::vector<int>{0, 2, 0, 0}));

  reopen(4);
  write(0, one_sector(1));
  sim.inject({.operation = Operation::sync});
  EXPECT_EQ(file->sync().code, 5u);
  write(512, one_sector(2));
  EXPECT_TRUE(file->sync().ok());
  EXPECT_EQ(sectors_after({Kept::nothing}), (std::vector<int>{0, 2, 0, 0}))
      << "a later sync does not make good a failed one";
}

TEST_F(Simulation, ARandomCutKeepsWholeWritesOrTearsThemAsItsSeedSays) {
  const auto after = [this](const simulation::Policy& policy) {
    reopen(4);
    write(0, filled(1024, 1));
    write(512, filled(1536, 2));
    return sectors_after(policy);
  };
  std::set<std::vector<int>> whole, torn;
  for (std::uint64_t seed = 0; seed < 400; ++seed) {
    whole.insert(after({Kept::random_writes, seed}));
    const auto sectors = after({Kept::random_sectors, seed});
    EXPECT_EQ(after({Kept::random_sectors, seed}), sectors);
    torn.insert(sectors);
  }
  EXPECT_EQ(whole, (std::set<std::vector<int>>{{0, 0, 0, 0}, {1, 1, 0, 0}, {0, 2, 2, 2}, {1, 2, 2, 2}}));
  EXPECT_EQ(torn.size(), 2u * 3 * 2 * 2) << "the second sector may be between the two";
}

TEST_F(Simulation, ANewNameSurvivesOnlyAfterItsDirectoryIsSynced) {
  ASSERT_TRUE(sim.create_new("/db\\kept").ok());
  ASSERT_TRUE(sim.sync_directory_of("/db\\kept").ok());
  const auto lost = sim.create_new("/db/lost");
  ASSERT_TRUE(lost.ok());
  ASSERT_TRUE(lost.value()->sync().ok());
  sim.power_cut({Kept::nothing});
  EXPECT_TRUE(sim.has_file("/db/kept"));
  EXPECT_FALSE(sim.has_file("/db/lost"));
}

TEST_F(Simulation, StoresInAMappingAreSeenAtOnceAndDurableAfterBothSyncs) {
  auto mapping = std::move(file->map(700, 100).value());
  mapping->bytes()[0] = std::byte{9};
  EXPECT_EQ(sim.contents("/db/file")[700], std::byte{9});

  ASSERT_TRUE(file->sync().ok());
  EXPECT_EQ(sim.durable_contents("/db/file")[700], std::byte{0}) << "the mapping was not synced";
  ASSERT_TRUE(mapping->sync().ok());
  EXPECT_EQ(sim.durable_contents("/db/file")[700], std::byte{0}) << "the file was not synced after it";
  ASSERT_TRUE(file->sync().ok());
  EXPECT_EQ(sim.durable_contents("/db/file")[700], std::byte{9});

  write(700, filled(1, 4));
  EXPECT_EQ(mapping->bytes()[0], std::byte{4});
}

TEST_F(Simulation, AMappedStoreMayReachTheMediumBeforeItIsSynced) {
  sim.write_back_mapped_stores(1);
  std::set<int> outcomes;
  for (std::uint64_t seed = 0; seed < 40; ++seed) {
    reopen(1);
    const auto mapping = std::move(file->map(0, 512).value());
    for (int value = 1; value <= 3; ++value) {
      mapping->bytes()[0] = static_cast<std::byte>(value);
      (void)sim.is_directory("/db");
    }
    outcomes.insert(sectors_after({Kept::random_sectors, seed})[0]);
  }
  EXPECT_EQ(outcomes, (std::set<int>{0, 1, 2, 3}));
}

TEST_F(Simulation, FaultsWaitForTheirOperationAndAreCounted) {
  sim.inject({.operation = Operation::write, .path_end = "file", .occurrence = 2, .code = ENOSPC});
  EXPECT_TRUE(file->write_at(0, one_sector(1)).ok());
  EXPECT_TRUE(file->sync().ok());
  EXPECT_EQ(file->write_at(0, one_sector(1)).status().code, std::uint32_t{ENOSPC});
  EXPECT_TRUE(file->write_at(0, one_sector(1)).ok());

  sim.inject({.occurrence = 2, .lasting = true});
  EXPECT_TRUE(file->sync().ok());
  EXPECT_FALSE(file->sync().ok());
  EXPECT_FALSE(sim.is_directory("/db").ok());
  sim.clear_faults();
  EXPECT_TRUE(sim.is_directory("/db").ok());
  EXPECT_EQ(sim.count(Operation::write, "file"), 3u);
  EXPECT_EQ(sim.events().back().operation, Operation::query_directory);
}

TEST_F(Simulation, WritesAreCutShortOnRequestAndByAFullDisk) {
  sim.inject({.operation = Operation::write, .transfer_limit = 10});
  EXPECT_EQ(file->write_at(0, one_sector(1)).value(), 10u);
  EXPECT_EQ(std::ranges::count(sim.contents("/db/file"), std::byte{1}), 10);
  sim.set_free_bytes(100);
  EXPECT_EQ(file->write_at(2048, one_sector(1)).value(), 100u);
  EXPECT_EQ(file->write_at(2148, one_sector(1)).status().code, sim.disk_full().code);
  EXPECT_TRUE(file->write_at(0, one_sector(1)).ok()) << "bytes in place need no room";
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
  EXPECT_FALSE(locked->write_at(0, one_sector(1)).ok());
  auto again = sim.open("/db/file", Sharing::none);
  ASSERT_TRUE(again.ok());
  locked = nullptr;
  mapping = nullptr;
  EXPECT_FALSE(sim.open("/db/file", Sharing::none).ok()) << "the dead handle must not drop the new lock";
  EXPECT_EQ(sim.contents("/db/file")[0], std::byte{0});
}

}  // namespace
