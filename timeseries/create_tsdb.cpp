#include "timeseries/create_tsdb.h"

#include <iostream>
#include <limits>

#include "common/errors.h"
#include "common/text.h"
#include "timeseries/backing_store.h"
#include "timeseries/block_map.h"
#include "timeseries/chain_sets.h"
#include "timeseries/chains.h"
#include "timeseries/header.h"

namespace tsdb {
namespace {

constexpr std::uint64_t bytes_per_check = std::uint64_t{1} << 20;

template <typename Step>
void report(const std::string& title, const Step& step) {
  std::cerr << title << "...";
  step();
  std::cerr << "ok.\n";
}

void open_store(const CreateSettings& settings) {
  btb_open(settings.path);
  btb_set_block_size(settings.block_size);
}

// Starts the block map and returns its capacity in blocks.
std::uint32_t size_map(const CreateSettings& settings) {
  constexpr std::uint64_t most = std::numeric_limits<std::uint32_t>::max();
  const std::uint64_t block_count = settings.initial_checks * bytes_per_check / settings.block_size;
  if (block_map_capacity(block_count) > most) {
    throw error_toobig("TSDB backing store is more than 2^32 blocks");
  }
  return static_cast<std::uint32_t>(init_block_map(static_cast<std::uint32_t>(block_count)));
}

void size_store(const CreateSettings& settings, std::uint32_t capacity_blocks) {
  BlocksWritten written;
  if (settings.growth_progress) {
    written = [&](std::uint32_t written_blocks, std::uint32_t all_blocks) {
      settings.growth_progress(std::uint64_t{settings.block_size} * written_blocks,
                               std::uint64_t{settings.block_size} * all_blocks);
    };
  }
  if (cgs_space() != 0) {
    btb_grow(capacity_blocks, written);
  } else {
    btb_format_volume(written);
  }
}

void create_chains(const CreateSettings& settings) {
  for (std::uint32_t set = 0; set < settings.chains; ++set) {
    for (const ChainTraits& traits : chain_traits) {
      report(text::concat("Creating ", traits.name, " chain #", set),
             [&] { create_chain(traits.kind, set, settings.initial_checks); });
    }
  }
}

}  // namespace

void create_tsdb(const CreateSettings& settings) {
  if (settings.placement == Placement::directory)
    settings.create_file(settings.path, 0);
  report("Initializing I/O layer", [&] { open_store(settings); });
  const std::uint32_t capacity_blocks = size_map(settings);
  report("Initializing database", [&] { size_store(settings, capacity_blocks); });
  report("Writing header", [&] { create_header(settings.block_size, capacity_blocks, settings.chains); });
  create_chains(settings);
  write_header();
  sync_writes();
}

void tsdb_close() {
  forget_chain_sets();
  forget_header();
  forget_block_map();
  btb_close();
}

}  // namespace tsdb
