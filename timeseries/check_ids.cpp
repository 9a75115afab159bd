#include "timeseries/check_ids.h"

#include <limits>

#include "common/errors.h"
#include "common/log.h"
#include "timeseries/chain_sets.h"
#include "timeseries/chains.h"
#include "timeseries/entry_search.h"
#include "timeseries/phase_shift.h"

namespace tsdb {
namespace {

constexpr std::uint64_t largest_check_id = std::numeric_limits<std::int32_t>::max();

std::int32_t find_or_grow(Chain& chain) {
  std::int32_t id = find_free_check_entry(chain);
  if (id == -1) {
    log(logging::information, logging::chains,
        "No free check IDs in check chain - will attempt to grow check chain");
    grow_chain(chain, 1);
    id = find_free_check_entry(chain);
  }
  if (id == -1)
    throw error_dbnospace("Could not allocate check ID after attempted Check Chain growth");
  return id;
}

}  // namespace

std::int32_t find_free_check_entry(Chain& chain) {
  const auto found = find_free_entry(chain);
  return found && *found <= largest_check_id ? static_cast<std::int32_t>(*found) : -1;
}

void set_check_pointer(Chain& chain, std::uint32_t entry_number, const CheckEntry& entry) {
  store_entry(chain, entry_number, entry.words());
}

std::int32_t allocate_check_id(std::uint32_t a, std::uint32_t b) {
  if (a == 0)
    throw error_internal("A check ID cannot be given to a pair that begins with 0");
  Chain& chain = current_chain(ChainKind::check);
  const std::int32_t id = find_or_grow(chain);
  log(logging::detail, logging::chains, "Setting check-chain pointer ", id, " to point to ", a, ":", b);
  set_check_pointer(chain, static_cast<std::uint32_t>(id), {a, b});
  sync_chains();
  return id;
}

}  // namespace tsdb
