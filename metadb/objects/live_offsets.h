// Where the live objects of cached blocks start, kept for blocks that are looked at again and again, so that
// looking at an object does not take a walk over all that lie before it.

#pragma once

#include <cstdint>

#include "metadb/storage/block_copy.h"

namespace mdb::live_offsets {

// Whether a live object is known to start at the offset. When it is not known, a walk has to tell.
bool contain(std::uint32_t block, const BlockView& view, std::uint32_t offset);

void reset();

}  // namespace mdb::live_offsets
