// Levels and time series: the entries of the chains that were committed last, against each other and against
// the blocks of the file.

#pragma once

#include <array>
#include <vector>

#include "inspect/facts.h"
#include "tsdb_chains.h"

namespace inspect {

// The committed chain of each kind; empty where the kind has none.
using CommittedChains = std::array<ChainBlocks, chain_kind_count>;

// Checks what the entries say, counts levels and series into `facts`, and lists them there when they are
// wanted. `owners` tells which blocks belong to chains. Throws Unreadable.
void check_series(const SourceFile& file, const TsdbShape& shape, const CommittedChains& chains,
                  const std::unordered_map<std::uint32_t, ChainId>& owners, const Wanted& wanted,
                  TsdbFacts& facts, Report& report);

}  // namespace inspect
