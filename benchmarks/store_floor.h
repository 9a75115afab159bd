// What the format asks of anybody who stores nodes, and nothing else: the journal's bytes with their
// checksum, the blocks that are changed by the time the journal is applied, the flushes.

#pragma once

#include "measure.h"
#include "store.h"

namespace bench {

Outcome store_at_the_floor(const StoreSettings& settings, std::size_t node_count);

// Moves random ones of `node_count` stored nodes, as a text that has outgrown its object asks for.
Outcome move_at_the_floor(const StoreSettings& settings, std::size_t node_count, std::size_t moves);

// Overwrites and flushes as many bytes as a synchronous store puts into the journal, and stamps the file
// after each flush when the journal's own rule is wanted.
Outcome overwrite_and_flush(const StoreSettings& settings, std::size_t node_count, bool stamp);

}  // namespace bench
