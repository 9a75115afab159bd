// A sync takes each changed kind through these states:
//
//   dirty --write_runs--> written --commit_chain--> committed --sync_writes--> settled
//     ^                      |                          |                         |
//     +---- any failure -----+--------------------------+                    phase_shift
//     +---------------------------------- in the next set ------------------------+
//
// Invariants:
//   P1  No header that commits a chain is written before the chain's blocks have been synced.
//   P2  A kind's next set is not touched before the header that commits its current set has been synced.
//   P3  A kind that fails on its way to `settled` has all its runs dirty again, so that the next sync
//       rewrites it as a whole: what a failed flush was to save may be lost to every later flush.

#include "timeseries/phase_shift.h"

#include <algorithm>
#include <array>
#include <bitset>

#include "common/errors.h"
#include "common/log.h"
#include "common/text.h"
#include "common/time.h"
#include "timeseries/backing_store.h"
#include "timeseries/chain_sets.h"
#include "timeseries/chains.h"
#include "timeseries/header.h"
#include "timeseries/meters.h"

namespace tsdb {
namespace {

using Kinds = std::bitset<chain_traits.size()>;

struct CommitStep {
  ChainKind kind;
  // One flush serves the commits since the last one.
  bool flushes;
};

// The order of everything that a sync does with the kinds.
constexpr std::array<CommitStep, 4> sync_order = {{
    {ChainKind::lblock, true},
    {ChainKind::head, false},
    {ChainKind::tail, true},
    {ChainKind::check, true},
}};

// The changed kinds that are not settled; what is left of them at its end is dirty again (P3).
class UnsettledKinds {
 public:
  explicit UnsettledKinds(Kinds kinds) : kinds_(kinds) {}
  ~UnsettledKinds() {
    for (const ChainTraits& traits : chain_traits) {
      if (kinds_[kind_index(traits.kind)])
        current_chain(traits.kind).mark_dirty();
    }
  }
  UnsettledKinds(const UnsettledKinds&) = delete;
  UnsettledKinds& operator=(const UnsettledKinds&) = delete;

  void settle(Kinds kinds) { kinds_ &= ~kinds; }

 private:
  Kinds kinds_;
};

Kinds changed_kinds() {
  Kinds changed;
  for (const CommitStep& step : sync_order) {
    changed[kind_index(step.kind)] = current_chain(step.kind).dirty();
  }
  return changed;
}

void write_kinds(Kinds changed) {
  for (const CommitStep& step : sync_order) {
    if (changed[kind_index(step.kind)])
      write_runs(current_chain(step.kind));
  }
  sync_writes();  // P1
}

void commit_kind(ChainKind kind) {
  commit_chain(current_chain(kind));
  if (kind == ChainKind::head)
    set_committed_head(current_set(kind));
}

void commit_kinds(Kinds changed, UnsettledKinds& unsettled) {
  Kinds committed;
  for (const CommitStep& step : sync_order) {
    if (changed[kind_index(step.kind)]) {
      commit_kind(step.kind);
      committed.set(kind_index(step.kind));
    }
    if (step.flushes && committed.any()) {
      sync_writes();  // P2
      unsettled.settle(committed);
      committed.reset();
    }
  }
}

void grow_for_copy(Chain& target, const Chain& source) {
  // Historic: the capacities are compared as signed numbers.
  const auto wanted = static_cast<std::int32_t>(chain_pointer_count(source));
  const auto present = static_cast<std::int32_t>(chain_pointer_count(target));
  if (present >= wanted)
    return;
  log(logging::information, logging::phase_shift, "Allocating extra blocks needed to copy chain ",
      source.chain_set(), " into chain ", target.chain_set());
  const std::int64_t per_block = source.entries_per_block();
  const std::int64_t missing = std::int64_t{wanted} - present;
  const auto extra = static_cast<std::uint32_t>((missing + per_block - 1) / per_block);
  if (extra == 0) {
    throw error_internal(text::concat("Need zero blocks for allocation from ", chain_pointer_count(target),
                                      " pointers up to ", chain_pointer_count(source)));
  }
  grow_chain(target, extra);
}

void clear_runs_from(Chain& target, std::size_t run_index) {
  for (Run& run : target.runs_to_change().subspan(run_index))
    run.clear_entries();
}

// Ends without clearing anything when the target is full; else clears from the target run that it reached.
void copy_entries(Chain& target, const Chain& source) {
  std::size_t to_run = 0, from_run = 0;
  std::uint64_t to = 0, from = 0;
  while (from_run < source.runs().size()) {
    if (to_run == target.runs().size())
      return;
    const std::uint64_t room = target.runs()[to_run].capacity() - to;
    const std::uint64_t left = source.runs()[from_run].capacity() - from;
    if (room == 0) {
      ++to_run;
      to = 0;
    } else if (left != 0) {
      const std::uint64_t count = std::min(room, left);
      target.runs_to_change()[to_run].copy_entries(to, source.runs()[from_run], from, count);
      to += count;
      from += count;
    } else {
      ++from_run;
      from = 0;
    }
  }
  clear_runs_from(target, to_run);
}

}  // namespace

void sync_chains() {
  const timing::StopWatch watch;
  const Kinds changed = changed_kinds();
  if (changed.none()) {
    log(logging::information, logging::phase_shift, "Phase shift of all chains avoided");
    return;
  }
  UnsettledKinds unsettled(changed);
  write_kinds(changed);
  commit_kinds(changed, unsettled);
  for (const CommitStep& step : sync_order) {
    if (changed[kind_index(step.kind)])
      phase_shift(step.kind);
  }
  phase_shifts().increment();
  phase_shift_time().add(watch.elapsed_milliseconds());
}

void phase_shift(ChainKind kind) {
  Chain& source = current_chain(kind);
  const std::uint32_t current = current_set(kind);
  const std::uint32_t next = (current + 1) % chain_set_count();
  copy_chain(chain_of(kind, next), source);
  log(logging::information, logging::phase_shift, "Phase shift from ", traits_of(kind).printed_name,
      " chain ", current, " to chain ", next, " complete!");
  set_current(kind, next);
}

void phase_shift_head() {
  phase_shift(ChainKind::head);
}

void phase_shift_tail() {
  phase_shift(ChainKind::tail);
}

void phase_shift_lblock() {
  phase_shift(ChainKind::lblock);
}

void phase_shift_check() {
  phase_shift(ChainKind::check);
}

void copy_chain(Chain& target, const Chain& source) {
  grow_for_copy(target, source);
  copy_entries(target, source);
  set_chain_timestamp(target.kind(), target.chain_set(),
                      chain_table_entry(source.kind(), source.chain_set()).timestamp);
}

}  // namespace tsdb
