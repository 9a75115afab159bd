// Where a node record is put together before it is stored: one buffer of a block, one a process. It belongs
// to the open database: node_model_init() follows its opening, and its closing frees the buffers.

#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "nodemodel/properties.h"

namespace mdb {

// Makes the buffers, zero-filled. Call it when the header is read and the allocation map is loaded.
// Throws error_internal "Attempt to initialize raw access layer before MDB I/O was initialized" while the
// block size is 0.
void node_model_init();

// Frees the buffers, as the closing of the database does; nothing can be added until the next
// node_model_init().
void node_model_reset();

// Forgets what was added. The bytes stay, and show in the padding of later entries.
void clear_cache();

// Appends the property's entry. The first property with an id wins, later ones are ignored.
// Throws error_bigobj "No space in serialization cache for property "; what was added before stays, and
// the id counts as added.
void add_property(const Property& property);

// Bytes added since the last clear_cache(); a multiple of 8.
std::uint32_t cache_length();

// The record as added so far. Valid until the cache is changed.
std::span<const std::byte> cache_bytes();

// A buffer of one block for whoever accesses raw blocks; empty before node_model_init().
std::span<std::byte> raw_access_buffer();

}  // namespace mdb
