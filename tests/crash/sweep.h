// Which operations of an undisturbed run a sweep disturbs, and the ways in which the power can go.

#pragma once

#include <vector>

#include "simulation/simulated_system.h"

namespace crash {

// The numbers of the operations, from 1 on. Reads of one byte are left out: they find out where a file or
// device ends, and one that fails means the end.
inline std::vector<std::uint64_t> operations_to_disturb(const simulation::SimulatedSystem& undisturbed) {
  std::vector<std::uint64_t> numbers;
  for (std::uint64_t number = 0; const simulation::Event& event : undisturbed.events()) {
    number += 1;
    if (event.operation != simulation::Operation::read || event.length != 1)
      numbers.push_back(number);
  }
  return numbers;
}

// All that is kept, none of it, random parts, and all but each single write.
inline std::vector<simulation::Policy> every_cut(const simulation::SimulatedSystem& system,
                                                 std::uint64_t seed) {
  using enum simulation::Kept;
  std::vector<simulation::Policy> policies;
  for (const simulation::Kept kept : {everything, nothing, random_writes, random_sectors})
    policies.push_back({kept, seed});
  for (std::size_t missing = 0; missing < system.unsynced_count(); ++missing)
    policies.push_back({all_but_one, missing});
  return policies;
}

}  // namespace crash
