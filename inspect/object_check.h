// The objects in the data blocks and the indexes, against each other.

#pragma once

#include <vector>

#include "block_check.h"
#include "tree_check.h"

namespace inspect {

// Walks the data blocks. An object that an index names must be a record and stand in every index that its
// properties ask for, under their keys; an entry must name an object. Counts the records into
// `facts`, and lists them there when they are wanted.
// Throws Unreadable.
void check_objects(const MdbImage& image, const BlockClasses& classes, std::vector<IndexTree> trees,
                   const Wanted& wanted, MdbFacts& facts, Report& report);

}  // namespace inspect
