// What the writer does to a meta database and what that must hold afterwards, for the writer and for who
// drives it: a transaction is a function of the seed, its number and the state before it.

#pragma once

#include <cstdint>
#include <random>
#include <set>
#include <string>

#include "common/text.h"
#include "small_pair.h"

namespace real {

using State = support::Nodes;

inline constexpr std::uint32_t first_id = 1000;  // above the ids that a new database holds
inline constexpr std::uint32_t id_count = 300;   // so that the store has to grow

// Makes the changes of transaction `number` in `state` and returns the ids of the nodes.
inline std::set<std::uint32_t> take_step(std::uint64_t seed, std::uint64_t number, State& state) {
  std::mt19937_64 random(seed * 1'000'003 + number);
  const auto below = [&](std::uint32_t limit) { return static_cast<std::uint32_t>(random() % limit); };
  std::set<std::uint32_t> changed;
  for (std::uint32_t rest = 1 + below(4); rest > 0; --rest) {
    const std::uint32_t id = first_id + below(id_count);
    // One draw a statement: compilers differ in the order of arguments, and the two programs in the compiler.
    const auto letter = static_cast<char>('a' + below(26));
    const std::uint32_t parent = first_id + below(20);
    const std::string name(below(7'900), letter);
    if (state.erase(id) == 0 || below(4) != 0)
      state[id] = {parent, name};
    changed.insert(id);
  }
  return changed;
}

// A line a node.
inline std::string describe(const State& state) {
  std::string lines;
  for (const auto& [id, node] : state)
    lines += text::concat(id, ' ', node.parent, ' ', node.name, '\n');
  return lines;
}

}  // namespace real
