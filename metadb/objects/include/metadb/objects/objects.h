// Objects: variable-length records in data blocks. An object is named by a reference (block and offset)
// and worked on through a handle, which owns a private copy of the whole block. Two handles on one block
// are independent copies, so one operation must have journalled its change before the next handle on the
// block is made.
//
// Every change goes through the journal; all transactions opened here end lazily.

#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "metadb/objects/object_handle.h"
#include "metadb/objects/reference.h"

namespace mdb {

// What writes a record into an object; the node layer implements it.
class RecordWriter {
 public:
  virtual ~RecordWriter() = default;

  // Bytes of the record, the object's header not included. With the header's 4 the length must be even.
  virtual std::uint32_t length() const = 0;

  // Copies the record into object_record(object) and keeps the indexes; runs inside the transaction of
  // object_store. `old` is the object as it was, null for a new one. What is thrown undoes the store.
  virtual void write(ObjectHandle& object, const ObjectHandle* old) = 0;
};

// The object's length as its header gives it, header included.
// Throws error_consistency when the header makes no sense.
std::uint32_t object_length(const ObjectView& object);

// The object's bytes after its header. Throws as object_length does.
std::span<std::byte> object_record(ObjectHandle& object);
std::span<const std::byte> object_record(const ObjectView& object);

// A handle on the live object that starts exactly at the reference.
// Throws error_nullobj for the null reference, error_need_repair "Attempt to load placeholder" when no live
// object starts there, error_consistency for a damaged item before it, and what reading the block throws.
ObjectHandle object_load(ObjectReference reference);

// The same to look at only: without a copy where the open transaction has not touched the block, else with
// one in `scratch`. Valid until the next call that may read or commit a block, and as long as `scratch` is
// kept.
ObjectView object_view(ObjectReference reference, BlockBuffer& scratch);

// Carves an object of exactly `size` bytes, header included, out of free space, in transactions of its own,
// and returns a handle on it. Until something is stored in it, an object that took a whole placeholder still
// counts as one. Throws error_dbnospace, error_internal "Attempted to allocate an odd-sized object".
ObjectHandle object_allocate(std::uint32_t size);

// Cuts an object of `size` bytes off the end of the placeholder at the handle, moves the handle to it and
// journals the header of what is left, not the object's. A placeholder of that very length stays as it is.
// REQUIRES: a transaction is open. Throws error_internal when the placeholder is too small or `size` is odd.
void object_split(ObjectHandle& handle, std::uint32_t size);

// Gives the object `new_size` bytes, in its own block when that has room; the record is lost, and the new
// header is not journalled, for object_store writes both. On failure the handle is of no more use.
// REQUIRES: a transaction is open; the caller aborts it on failure. Throws error_dbnospace, error_internal.
void object_resize(ObjectHandle& handle, std::uint32_t new_size);

// Turns the object into free space, merged with its free neighbours, and reclassifies the block.
// REQUIRES: a transaction is open. Throws error_consistency for a damaged block.
void object_free(ObjectHandle& handle);

// Frees an object that nothing names, in a transaction of its own, because what was to name it has failed.
// Best effort: the failure that is being reported may well stop this, too. Throws nothing.
void free_unnamed_object(ObjectReference reference);

// Writes a record: into a new object for the null reference, else over the object named, which is resized
// and may move. Returns where the record is now; the reference given is void then.
//
// Whole or not at all: after a failure the old object stands as before, and a new one is freed again.
// Survives a process death at once, a power cut within a second or so, or as the caller's transaction ends.
// Throws what object_load, the allocator, the journal and the writer throw.
ObjectReference object_store(ObjectReference reference, RecordWriter& writer);

}  // namespace mdb
