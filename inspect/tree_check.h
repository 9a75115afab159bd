// The index trees.

#pragma once

#include <cstdint>
#include <vector>

#include "block_check.h"

namespace inspect {

struct IndexEntry {
  NodeKey key;
  ObjectPlace object;
  ObjectPlace found_at;  // the entry's own place: leaf and offset in it
};

struct IndexTree {
  std::vector<IndexEntry> entries;  // in the order of the tree
  bool is_made = false;
  bool is_whole = false;  // no part of it was left out
};

// Walks the trees below all roots that the header counts, fills their facts, and finds the index blocks that
// no tree reaches. Throws Unreadable.
std::vector<IndexTree> check_trees(const MdbImage& image, const MdbLayout& layout,
                                   const BlockClasses& classes, const Wanted& wanted, MdbFacts& facts,
                                   Report& report);

}  // namespace inspect
