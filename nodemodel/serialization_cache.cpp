#include "nodemodel/serialization_cache.h"

#include <unordered_set>
#include <vector>

#include "common/errors.h"
#include "common/text.h"
#include "metadb/objects/database.h"
#include "metadb/storage/backing_store.h"

namespace mdb {

namespace {

struct NodeModelState {
  std::vector<std::byte> cache;
  std::vector<std::byte> raw_access;
  std::uint32_t used = 0;
  std::unordered_set<std::uint32_t> added_ids;
};

NodeModelState state;

}  // namespace

void node_model_init() {
  if (block_size() == 0) {
    throw error_internal("Attempt to initialize raw access layer before MDB I/O was initialized");
  }
  mdb_set_forget_hook(node_model_reset);
  state = {};
  state.cache.resize(block_size());
  state.raw_access.resize(block_size());
}

void node_model_reset() {
  state = {};
}

void clear_cache() {
  state.added_ids.clear();
  state.used = 0;
}

void add_property(const Property& property) {
  if (!state.added_ids.insert(property.id()).second)
    return;
  constexpr std::size_t header_size = format::property_entry::value;
  const std::size_t size = format::property_entry::padded(property.value_size(header_size) + header_size);
  if (size > state.cache.size() - state.used) {
    throw error_bigobj(text::concat("No space in serialization cache for property ", property.id()));
  }
  property.write(std::span(state.cache).subspan(state.used, size));
  state.used += static_cast<std::uint32_t>(size);
}

std::uint32_t cache_length() {
  return state.used;
}

std::span<const std::byte> cache_bytes() {
  return std::span(state.cache).first(state.used);
}

std::span<std::byte> raw_access_buffer() {
  return state.raw_access;
}

}  // namespace mdb
