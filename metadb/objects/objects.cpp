// How objects and placeholders share a block. Invariants:
//
//   O1  The items of a data block tile it: what a split or a merge does not journal are headers that no walk
//       from offset 0 can reach.
//   O2  Two placeholders never lie side by side: a split puts its object between, and a free merges.

#include "metadb/objects/objects.h"

#include <algorithm>
#include <optional>

#include "common/assertion.h"
#include "common/errors.h"
#include "common/log.h"
#include "common/text.h"
#include "live_offsets.h"
#include "metadb/objects/allocator.h"
#include "metadb/objects/data_block.h"
#include "metadb/storage/backing_store.h"
#include "metadb/storage/journal.h"

namespace mdb {
namespace {

Item item_of(const ObjectView& object) {
  return item_at(object.data, object.block, object.offset);
}

void journal_header(const ObjectHandle& handle, std::uint32_t offset) {
  transaction_update(handle.data.bytes().subspan(offset, format::item::header_size),
                     std::uint64_t{handle.block} * block_size() + offset);
}

// The last placeholder before the object. The walk ends at a damaged item; whether that matters is for the
// reclassification of the block to find out.
std::optional<Item> last_placeholder_before(const ObjectHandle& handle) {
  std::optional<Item> placeholder;
  std::uint32_t offset = 0;
  while (offset < handle.offset) {
    const std::optional<Item> item = sound_item_at(handle.data.bytes(), offset);
    if (!item) {
      log(logging::severe, logging::objects, "block ", handle.block, " offset ", offset,
          " contained zero-length object which should not exist");
      break;
    }
    if (item->is_placeholder)
      placeholder = item;
    offset = item->end();
  }
  return placeholder;
}

// The length of the placeholder that the object becomes with what is free right after it.
std::uint32_t length_with_successor(const ObjectHandle& handle) {
  const Item object = item_of(handle);
  if (object.end() == handle.data.size())
    return object.length_bytes;
  const Item next = item_at(handle.data.bytes(), handle.block, object.end());
  return object.length_bytes + (next.is_placeholder ? next.length_bytes : 0);
}

void require_reference(ObjectReference reference) {
  if (reference.is_null())
    throw error_nullobj("Attempt to read null object");
}

// Each item tells where the next one is, so that a walk waits for memory at every step, but not when it has
// been asked for whole before.
void prefetch(std::span<const std::byte> bytes) {
  constexpr std::size_t cache_line = 64;
  for (std::size_t offset = 0; offset < bytes.size(); offset += cache_line)
    __builtin_prefetch(&bytes[offset]);
}

void require_live(const ObjectView& object) {
  prefetch(object.data.first(std::min<std::size_t>(object.offset, object.data.size())));
  for (const Item& item : BlockItems(object.block, object.data)) {
    if (item.offset == object.offset && !item.is_placeholder)
      return;
    if (item.offset >= object.offset)
      break;
  }
  throw error_need_repair("Attempt to load placeholder");
}

void reclassify(const ObjectHandle& handle) {
  const BlockClass block_class = classify_block(handle);
  if (block_class != mark_query(handle.block))
    mark_block(handle.block, block_class);
}

}  // namespace

std::uint32_t object_length(const ObjectView& object) {
  return item_of(object).length_bytes;
}

std::span<std::byte> object_record(ObjectHandle& object) {
  return object.data.bytes().subspan(object.offset, object_length(object)).subspan(format::item::record);
}

std::span<const std::byte> object_record(const ObjectView& object) {
  return object.data.subspan(object.offset, object_length(object)).subspan(format::item::record);
}

ObjectHandle object_load(ObjectReference reference) {
  require_reference(reference);
  ObjectHandle handle{reference.block, reference.offset, read_block_copy(reference.block)};
  require_live(handle);
  return handle;
}

ObjectView object_view(ObjectReference reference, BlockBuffer& scratch) {
  require_reference(reference);
  const BlockView block = view_block_version(reference.block, scratch);
  const ObjectView view{reference.block, reference.offset, block.bytes};
  if (!live_offsets::contain(reference.block, block, reference.offset))
    require_live(view);
  return view;
}

ObjectHandle object_allocate(std::uint32_t size) {
  ObjectHandle handle = alloc_space(0, size);
  if (!item_of(handle).is_placeholder) {
    throw error_internal(text::concat("Allocation code returned object ", handle.block, ":", handle.offset,
                                      " which is NOT a placeholder"));
  }
  Transaction transaction;
  object_split(handle, size);
  journal_header(handle, handle.offset);
  try {
    transaction.end();
  } catch (...) {
    if (!transaction.is_open())
      free_unnamed_object(handle.reference());
    throw;
  }
  return handle;
}

void free_unnamed_object(ObjectReference reference) {
  try {
    ObjectHandle object{reference.block, reference.offset, read_block_copy(reference.block)};
    Transaction transaction;
    object_free(object);
    transaction.end();
  } catch (...) {
    // The space stays taken until a repair finds it; the caller is told what went wrong first.
  }
}

void object_split(ObjectHandle& handle, std::uint32_t size) {
  const std::uint32_t length_bytes = object_length(handle);
  if (length_bytes == size) {
    log(logging::information, logging::space, " - size matches request, returning untouched");
    return;
  }
  if (length_bytes < size)
    throw error_internal("Attempted to split undersized object");
  const std::uint32_t rest_bytes = length_bytes - size;
  store_item_header(handle.data.bytes(), handle.offset, rest_bytes, true);
  if (size % 2 != 0)
    throw error_internal("Attempted to allocate an odd-sized object");
  if (rest_bytes < format::item::header_size || size < format::item::header_size) {
    throw error_internal("Attempted to split undersized object");
  }
  const std::uint32_t object_offset = handle.offset + rest_bytes;
  store_item_header(handle.data.bytes(), object_offset, size, false);
  journal_header(handle, handle.offset);
  handle.offset = object_offset;
}

void object_free(ObjectHandle& handle) {
  const std::uint32_t free_bytes = length_with_successor(handle);
  store_item_header(handle.data.bytes(), handle.offset, free_bytes, true);

  const std::optional<Item> before = last_placeholder_before(handle);
  if (before && before->end() == handle.offset) {
    store_item_header(handle.data.bytes(), before->offset, before->length_bytes + free_bytes, true);
    journal_header(handle, before->offset);  // O1, O2
  } else {
    journal_header(handle, handle.offset);  // O1
  }
  reclassify(handle);
}

void object_resize(ObjectHandle& handle, std::uint32_t new_size) {
  if (object_length(handle) == new_size)
    return;
  alloc_check_size(new_size);
  object_free(handle);
  handle = alloc_space(handle.block, new_size);
  if (handle.data.empty())
    assertion_failed("dobj.data is NULL!");
  if (object_length(handle) > new_size)
    object_split(handle, new_size);
  if (const std::uint32_t found_bytes = object_length(handle); found_bytes != new_size) {
    throw error_internal(text::concat("Located a block of ", found_bytes, " bytes when we were looking for ",
                                      new_size, " bytes"));
  }
  store_item_header(handle.data.bytes(), handle.offset, new_size, false);
}

}  // namespace mdb
