#include "timeseries/growth.h"

#include <algorithm>

#include "common/log.h"
#include "timeseries/backing_store.h"
#include "timeseries/block_map.h"

namespace tsdb {

void grow_tsdb(std::uint32_t wanted_block_count) {
  const std::uint32_t current = btb_block_count();
  const std::uint32_t step = current / 100 * 10;
  std::uint32_t amount = std::max(wanted_block_count, step);
  const std::uint32_t free = cgs_space();
  if (free < amount) {
    log(logging::warning, logging::chains, "Wanted to grow TSDB with ", amount, " blocks, but only ", free,
        " blocks are available");
    amount = free;
  } else {
    log(logging::information, logging::chains, "Growing TSDB with ", amount, " blocks");
  }
  btb_grow(amount);
  // btb_grow() has refused a sum above 32 bits.
  resize_block_map(current + amount);
}

}  // namespace tsdb
