// The meta database as the benchmarks make and open it.

#pragma once

#include "nodemodel/properties.h"
#include "store.h"

namespace bench {

inline constexpr std::uint32_t block_bytes = 8192;
inline constexpr std::uint32_t map_blocks = 256;
inline constexpr std::uint32_t first_data_block = 1 + map_blocks;

// Makes the files of an empty database with an external journal, and leaves it closed.
void create_database(const StoreSettings& settings);
void open_database(const StoreSettings& settings);
// The orderly end.
void close_database();

inline mdb::NodeId node_id(std::uint64_t id) {
  return {static_cast<std::uint32_t>(id >> 32), static_cast<std::uint32_t>(id)};
}

}  // namespace bench
