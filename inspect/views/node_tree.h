// The nodes as a tree.

#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "inspect/details.h"

namespace inspect {

struct TreeNode {
  static constexpr std::size_t no_parent = ~std::size_t{0};

  const NodeFacts* node = nullptr;
  std::size_t parent = no_parent;  // its place in the tree's order
  std::uint32_t depth = 0;
  std::uint64_t child_count = 0;
};

// Every node once, behind its parent and before the parent's next child; siblings by their ids. A node whose
// parent is not there stands at the top; of nodes that are each other's parents the one with the least id
// does. REQUIRES: `nodes` outlives the result.
std::vector<TreeNode> node_tree(const std::vector<NodeFacts>& nodes);

}  // namespace inspect
