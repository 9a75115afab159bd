// Growth of the database file together with its block map.

#pragma once

#include <cstdint>

namespace tsdb {

// Appends `wanted_block_count` blocks, or about ten per cent of the file where that is more; cgs_space()
// where that is less. Nothing is appended, without an error, when that is 0: the caller's next allocation
// decides. As it counts half-blocks, a growth that was cut down to it may still meet the full disk.
// Throws error_dbspacewrap when block numbers would pass 32 bits, and what cgs_space() and btb_grow()
// throw; a failed growth leaves the map as it was.
void grow_tsdb(std::uint32_t wanted_block_count);

}  // namespace tsdb
