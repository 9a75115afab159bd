// What the format asks of anybody who stores nodes, and nothing else: the journal's bytes with their
// checksum, the blocks that are changed by the time the journal is applied, the flushes.

#pragma once

#include "measure.h"
#include "store.h"

namespace bench {

Outcome store_at_the_floor(const StoreSettings& settings, std::size_t node_count);

// Overwrites and flushes as many bytes as a synchronous store puts into the journal.
Outcome overwrite_and_flush(const StoreSettings& settings, std::size_t node_count);

}  // namespace bench
