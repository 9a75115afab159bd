// The meters of the time series database.

#pragma once

#include "common/meters.h"

namespace tsdb {

// The group "low": phase shifts and the backing store's operations. Constructed on first use.
meter::Group& low_group();

// The group "entrycache": counters kept for the write buffers of a server; nothing here moves them.
meter::Group& entrycache_group();

// Syncs that changed anything.
meter::IntegerCounter& phase_shifts();

// How long each of them took, in milliseconds.
meter::MilliSecondTiming& phase_shift_time();

}  // namespace tsdb
