// The one way in which records reach objects.

#include <algorithm>
#include <limits>
#include <optional>
#include <utility>

#include "metadb/objects/data_block.h"
#include "metadb/objects/objects.h"
#include "metadb/storage/backing_store.h"
#include "metadb/storage/journal.h"

namespace mdb {
namespace {

// Bytes that the record takes with its header. What does not fit the type fits no block either.
std::uint32_t size_for(const RecordWriter& writer) {
  constexpr std::uint64_t largest = std::numeric_limits<std::uint32_t>::max();
  return static_cast<std::uint32_t>(
      std::min(std::uint64_t{writer.length()} + format::item::header_size, largest));
}

// Whether the store already holds these bytes at the object's place. An object that moved within its block
// may meet the remains of an earlier one: no header that this transaction wrote lies among them.
bool is_stored_already(const ObjectHandle& object, std::span<const std::byte> object_bytes,
                       const ObjectHandle* old) {
  if (old == nullptr || old->block != object.block)
    return false;
  return std::ranges::equal(object_bytes, old->data.bytes().subspan(object.offset, object_bytes.size()));
}

// Ends the transaction.
ObjectReference write_object(Transaction& transaction, ObjectHandle object, const ObjectHandle* old,
                             std::uint32_t size, RecordWriter& writer) {
  if (old != nullptr)
    object_resize(object, size);
  store_item_header(object.data.bytes(), object.offset, size, false);
  writer.write(object, old);

  const std::span<const std::byte> object_bytes = object.data.bytes().subspan(object.offset, size);
  if (!is_stored_already(object, object_bytes, old)) {
    transaction_update(object_bytes, std::uint64_t{object.block} * block_size() + object.offset);
  }
  transaction.end();
  return object.reference();
}

ObjectReference store_new_object_alone(std::uint32_t size, RecordWriter& writer) {
  ObjectHandle object = object_allocate(size);
  const ObjectReference reference = object.reference();
  std::optional<Transaction> transaction;
  try {
    transaction.emplace();
    return write_object(*transaction, std::move(object), nullptr, size, writer);
  } catch (...) {
    // What fails after the commit, a sync or an apply, leaves the object stored and its entries in the
    // indexes.
    const bool is_stored = transaction && !transaction->is_open();
    transaction.reset();
    if (!is_stored)
      free_unnamed_object(reference);
    throw;
  }
}

// Inside a transaction of the caller's the space is given back by an abort, which needs no room in the
// journal.
ObjectReference store_new_object(std::uint32_t size, RecordWriter& writer) {
  if (!transaction_is_open())
    return store_new_object_alone(size, writer);
  Transaction whole;
  const ObjectReference reference = store_new_object_alone(size, writer);
  whole.end();
  return reference;
}

}  // namespace

ObjectReference object_store(ObjectReference reference, RecordWriter& writer) {
  if (reference.is_null())
    return store_new_object(size_for(writer), writer);
  const std::uint32_t size = size_for(writer);
  const ObjectHandle old = object_load(reference);
  ObjectHandle object{reference.block, reference.offset, read_block_copy(reference.block)};
  Transaction transaction;
  return write_object(transaction, std::move(object), &old, size, writer);
}

}  // namespace mdb
