#include "timeseries/chains.h"

#include <utility>

#include "common/errors.h"
#include "common/log.h"
#include "common/text.h"
#include "timeseries/backing_store.h"
#include "timeseries/block_map.h"
#include "timeseries/chain_sets.h"
#include "timeseries/growth.h"
#include "timeseries/header.h"

namespace tsdb {
namespace {

void append_written(Chain& chain, Run run) {
  chain.append(std::move(run));
  Run& appended = chain.last_run();
  if (chain.traits().is_ht_data) {
    log(logging::detail, logging::chains, "Will write ", appended.block_count(), " of HT data to block ",
        appended.first_block());
  }
  write_run(appended);
}

std::uint32_t allocate_for_growth(std::uint32_t block_count) {
  std::uint32_t first = 0;
  if (block_count != 0) {
    first = allocate_blocks(block_count);
    if (first == 0) {
      grow_tsdb(block_count);
      first = allocate_blocks(block_count);
    }
  }
  if (first != 0)
    return first;
  throw error_dbnospace(
      text::concat("Unable to allocate ", block_count, " blocks even after attempted database growth!"));
}

}  // namespace

void create_chain(ChainKind kind, std::uint32_t chain_set, std::uint32_t check_count) {
  Chain& chain = chain_of(kind, chain_set);
  const std::uint64_t per_block = chain.entries_per_block();
  const auto block_count = static_cast<std::uint32_t>((check_count + per_block - 1) / per_block);
  const std::uint32_t first = allocate_blocks(block_count);
  if (first == 0)
    throw error_dbnospace("No space available for pointer chain allocation");
  log(logging::detail, logging::chains, "Allocated ", block_count, " for PointerChain ", "at dblock ", first);
  append_written(chain, chain.make_run(first, block_count));
  set_chain_table_entry(kind, chain_set, 0, first);
}

void create_head_chain(std::uint32_t chain_set, std::uint32_t check_count) {
  create_chain(ChainKind::head, chain_set, check_count);
}

void create_tail_chain(std::uint32_t chain_set, std::uint32_t check_count) {
  create_chain(ChainKind::tail, chain_set, check_count);
}

void create_lblock_chain(std::uint32_t chain_set, std::uint32_t check_count) {
  create_chain(ChainKind::lblock, chain_set, check_count);
}

void create_check_chain(std::uint32_t chain_set, std::uint32_t check_count) {
  create_chain(ChainKind::check, chain_set, check_count);
}

void grow_chain(Chain& chain, std::uint32_t block_count) {
  const std::uint32_t first = allocate_for_growth(block_count);
  Run run = chain.make_run(first, block_count);
  if (!chain.runs().empty())
    link_run(chain.last_run(), first);
  append_written(chain, std::move(run));
  log(logging::information, logging::chains, "Chain ", chain.chain_set(), " in chain-block ",
      kind_index(chain.kind()), " was grown with ", block_count, " blocks to ", chain.runs().size(),
      " chain elements (", chain_pointer_count(chain), " pointers)");
}

void write_run(Run& run) {
  btb_WriteFile(run.first_block(), run.buffer(), run.block_count());
  run.mark_written();
}

void write_runs(Chain& chain) {
  for (Run& run : chain.runs_to_change())
    write_run(run);
}

void commit_chain(Chain& chain) {
  if (chain.runs().empty()) {
    throw error_internal(text::concat("Chain ", chain.chain_set(), " in chain-block ",
                                      kind_index(chain.kind()), " has nothing to commit"));
  }
  const std::uint64_t timestamp = chain_table_entry(chain.kind(), chain.chain_set()).timestamp + 1;
  set_chain_table_entry(chain.kind(), chain.chain_set(), timestamp, chain.runs().front().first_block());
  log(logging::detail, logging::phase_shift, "New timestamp for chain ", chain.chain_set(), " in block ",
      kind_index(chain.kind()), " is ", timestamp,
      " (re-read: ", chain_table_entry(chain.kind(), chain.chain_set()).timestamp, ")");
  write_header();
}

}  // namespace tsdb
