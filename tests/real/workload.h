// What the writer does to a meta database and what that must hold afterwards, for the writer and for who
// drives it: a transaction is a function of the seed, its number and the state before it.

#pragma once

#include <cstdint>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "common/text.h"

namespace real {

// By the second word of a node's id: its parent's, a space and its name.
using State = std::map<std::uint32_t, std::string>;

inline constexpr std::uint32_t first_id = 1000;  // above the ids that a new database holds
inline constexpr std::uint32_t id_count = 300;   // so that the store has to grow

using Changes = std::vector<std::pair<std::uint32_t, std::string>>;  // nothing: the node is erased

// Makes the changes of transaction `number` in `state` and returns them.
inline Changes take_step(std::uint64_t seed, std::uint64_t number, State& state) {
  std::mt19937_64 random(seed * 1'000'003 + number);
  const auto below = [&](std::uint32_t limit) { return static_cast<std::uint32_t>(random() % limit); };
  Changes changes;
  for (std::uint32_t rest = 1 + below(4); rest > 0; --rest) {
    const std::uint32_t id = first_id + below(id_count);
    // One draw a statement: compilers differ in the order of arguments, and the two programs in the compiler.
    const auto letter = static_cast<char>('a' + below(26));
    const std::uint32_t parent = first_id + below(20);
    const std::string name(below(7'900), letter);
    if (state.erase(id) == 0 || below(4) != 0)
      state[id] = text::concat(parent, ' ', name);
    changes.emplace_back(id, state.contains(id) ? state[id] : "");
  }
  return changes;
}

// A line a node.
inline std::string describe(const State& state) {
  std::string lines;
  for (const auto& [id, node] : state)
    lines += text::concat(id, ' ', node, '\n');
  return lines;
}

}  // namespace real
