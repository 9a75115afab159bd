// The search for a free entry in an lblock or check chain.

#pragma once

#include <cstdint>
#include <optional>

#include "timeseries/chain.h"

namespace tsdb {

// Number of the chain's lowest entry whose first word is 0. Passes over what is known to be in use.
std::optional<std::uint64_t> find_free_entry(Chain& chain);

}  // namespace tsdb
