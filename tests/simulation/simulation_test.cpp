#include "simulation/simulated_system.h"

#include <gtest/gtest.h>

#include <set>

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

TEST_F(Simulation, ARandomCutKeepsWholeWritesOrTearsThem) {
  const auto outcome = [this](simulation::Policy policy) {
    reopen();
    write(0, 2, 1);
    write(1, 3, 2);
    return after(policy);
  };
  std::set<Sectors> whole, torn;
  for (std::uint64_t seed = 0; seed < 400; ++seed) {
    whole.insert(outcome({Kept::random_writes, seed}));
    torn.insert(outcome({Kept::random_sectors, seed}));
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
}

}  // namespace
