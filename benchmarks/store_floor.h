// What the format asks of anybody who stores nodes, and nothing else: the journal's bytes with their
// checksum, the blocks that are changed by the time the journal is applied, the flushes.

#pragma once

#include "measure.h"
#include "store.h"
#include "store_trace.h"

namespace bench {

// Writes what the operations of a trace wrote into a store that was new; the first `untimed` of them before
// the clock starts.
Outcome operations_at_the_floor(const StoreSettings& settings, const Trace& trace, std::size_t untimed,
                                std::size_t timed);

// Overwrites and flushes as many bytes as each operation of a trace put into the journal, and stamps the file
// after each flush when the journal's own rule is wanted.
Outcome overwrite_and_flush(const StoreSettings& settings, const Trace& trace, bool stamp);

}  // namespace bench
