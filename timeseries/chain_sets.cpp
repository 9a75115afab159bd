#include "timeseries/chain_sets.h"

#include <array>
#include <utility>
#include <vector>

#include "common/errors.h"
#include "common/text.h"

namespace tsdb {
namespace {

struct ChainSets {
  std::uint32_t set_count = 0;
  std::array<std::vector<Chain>, chain_traits.size()> chains;
  std::array<std::uint32_t, chain_traits.size()> current{};
  std::uint32_t committed_head = 0;
};

ChainSets sets;

}  // namespace

void create_chain_sets(std::uint32_t set_count, std::uint32_t block_size) {
  ChainSets fresh;
  fresh.set_count = set_count;
  for (const ChainTraits& traits : chain_traits) {
    std::vector<Chain>& chains = fresh.chains[kind_index(traits.kind)];
    chains.reserve(set_count);
    for (std::uint32_t set = 0; set < set_count; ++set)
      chains.emplace_back(traits.kind, set, block_size);
  }
  sets = std::move(fresh);
}

void forget_chain_sets() {
  sets = ChainSets();
}

std::uint32_t chain_set_count() {
  return sets.set_count;
}

Chain& chain_of(ChainKind kind, std::uint32_t chain_set) {
  if (chain_set >= sets.set_count) {
    throw error_internal(
        text::concat("Chain set ", chain_set, " does not exist, there are ", sets.set_count));
  }
  return sets.chains[kind_index(kind)][chain_set];
}

Chain& current_chain(ChainKind kind) {
  return chain_of(kind, current_set(kind));
}

std::uint32_t current_set(ChainKind kind) {
  return sets.current[kind_index(kind)];
}

void set_current(ChainKind kind, std::uint32_t chain_set) {
  sets.current[kind_index(kind)] = chain_set;
}

std::uint32_t committed_head_set() {
  return sets.committed_head;
}

void set_committed_head(std::uint32_t chain_set) {
  sets.committed_head = chain_set;
}

}  // namespace tsdb
