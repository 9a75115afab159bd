// Phase shifts: the changed current chains are written and committed, then copied into the next chain set,
// which becomes the current one. The set before it always holds the last committed state.

#pragma once

#include "timeseries/chain.h"

namespace tsdb {

// Makes every change in the current chains durable, and moves the changed kinds on to their next set. As a
// copied chain counts as changed, a kind that was shifted once takes part in every later sync.
//
// When it throws before a kind's commit is durable, that kind's runs are dirty again and a later call tries
// once more with all of them; a kind whose shift did not complete stays in its set.
// Throws error_internal before the chain sets exist, and what writes, syncs and growth throw.
void sync_chains();

// Copies the kind's current chain into the next set and makes that set the current one.
// Throws like copy_chain(); the current set is then as it was.
void phase_shift(ChainKind kind);
void phase_shift_head();
void phase_shift_tail();
void phase_shift_lblock();
void phase_shift_check();

// Copies the entries and the timestamp of `source` into `target`, which grows first when it is smaller. In
// memory only, but for the growth. Where the source ends within a run of the target, that run is cleared as
// a whole, copied entries included, with all runs behind it; chains with equal runs lose nothing.
// REQUIRES: both chains are of one kind.
// Throws what grow_chain() throws.
void copy_chain(Chain& target, const Chain& source);

}  // namespace tsdb
