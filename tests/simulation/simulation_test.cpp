// Where the simulated computer kept or lost other than it is told, the tests that trust it would be blind.

#include "simulation/simulated_system.h"

#include <gtest/gtest.h>

#include <functional>
#include <set>

namespace {

using simulation::Kept;
using simulation::Policy;
using simulation::SimulatedSystem;
using Sectors = std::vector<int>;

void write(platform::File& file, std::uint64_t sector, std::size_t count, int value) {
  const std::vector<std::byte> bytes(count * simulation::sector_size, static_cast<std::byte>(value));
  EXPECT_TRUE(file.write_at(sector * simulation::sector_size, bytes).ok());
}

// The first byte of each sector of a file, which had four of zeros, after these steps and a cut.
Sectors after(Policy policy, const std::function<void(SimulatedSystem&, platform::File&)>& steps) {
  SimulatedSystem sim;
  sim.add_file("/file", std::vector<std::byte>(4 * simulation::sector_size));
  const auto file = sim.open("/file", platform::Sharing::all);
  steps(sim, *file.value());
  sim.power_cut(policy);
  const auto bytes = sim.contents("/file");
  Sectors values;
  for (std::size_t at = 0; at < bytes.size(); at += simulation::sector_size)
    values.push_back(std::to_integer<int>(bytes[at]));
  return values;
}

TEST(Simulation, WhatWasNotSyncedIsLostOrKeptAsTold) {
  const auto write_on = [](SimulatedSystem&, platform::File& file) {
    write(file, 0, 1, 1);
    EXPECT_TRUE(file.sync().ok());
    write(file, 1, 1, 2);
    write(file, 4, 1, 3);
  };
  EXPECT_EQ(after({Kept::nothing}, write_on), (Sectors{1, 0, 0, 0}));
  EXPECT_EQ(after({Kept::everything}, write_on), (Sectors{1, 2, 0, 0, 3}));
  EXPECT_EQ(after({Kept::all_but_one, 3}, write_on), (Sectors{1, 2, 0, 0}));
  const auto fail_a_sync = [&](SimulatedSystem& sim, platform::File& file) {
    write(file, 2, 1, 1);
    sim.inject({.operation = simulation::Operation::sync});
    EXPECT_EQ(file.sync().code, 5u);
    write_on(sim, file);
  };
  EXPECT_EQ(after({Kept::nothing}, fail_a_sync), (Sectors{1, 0, 0, 0})) << "no later sync makes it good";
}

TEST(Simulation, ARandomCutKeepsWholeWritesOrTearsThem) {
  const auto write_twice = [](SimulatedSystem&, platform::File& file) {
    write(file, 0, 2, 1);
    write(file, 1, 3, 2);
  };
  std::set<Sectors> whole, torn;
  for (std::uint64_t seed = 0; seed < 400; ++seed) {
    whole.insert(after({Kept::random_writes, seed}, write_twice));
    torn.insert(after({Kept::random_sectors, seed}, write_twice));
  }
  EXPECT_EQ(whole, (std::set<Sectors>{{0, 0, 0, 0}, {1, 1, 0, 0}, {0, 2, 2, 2}, {1, 2, 2, 2}}));
  EXPECT_EQ(torn.size(), 2u * 3 * 2 * 2) << "the second sector may be between the two";
}

TEST(Simulation, ANewNameSurvivesOnlyAfterItsDirectoryIsSynced) {
  SimulatedSystem sim;
  ASSERT_TRUE(sim.create_new("/kept").ok() && sim.sync_directory_of("\\kept").ok());
  ASSERT_TRUE(sim.create_new("/lost").value()->sync().ok());
  sim.power_cut({});
  EXPECT_TRUE(sim.has_file("/kept") && !sim.has_file("/lost"));
}

TEST(Simulation, StoresInAMappingAreDurableAfterBothSyncs) {
  for (const bool in_order : {false, true}) {
    const auto store = [&](SimulatedSystem& sim, platform::File& file) {
      const auto mapping = file.map(512, 100);
      mapping.value()->bytes()[0] = std::byte{9};
      EXPECT_EQ(sim.contents("/file")[512], std::byte{9}) << "seen at once";
      EXPECT_TRUE(in_order || file.sync().ok());
      EXPECT_TRUE(mapping.value()->sync().ok());
      EXPECT_TRUE(!in_order || file.sync().ok());
    };
    EXPECT_EQ(after({Kept::nothing}, store), (Sectors{0, in_order ? 9 : 0, 0, 0}));
  }
}

}  // namespace
