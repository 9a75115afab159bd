// Reading a node record entry by entry. What the object holds is checked before it is used.

#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "metadb/objects/object_handle.h"
#include "nodemodel/properties.h"

namespace mdb {

// One property entry, a view into the object's bytes.
class RecordEntry {
 public:
  std::uint32_t property_id() const;
  // The code of the value's kind, without the mark.
  std::uint32_t type_code() const;
  bool is_marked() const;
  // Where the entry begins in its block.
  std::uint32_t offset() const { return offset_; }
  // The entry with its header and padding, at least 12 bytes.
  std::span<const std::byte> bytes() const { return bytes_; }

  // The value as a node id or a flag, whatever the type code says.
  // Throw error_need_repair when the entry is too short for it.
  NodeId node_id() const;
  bool flag() const;

  // Takes the value, the id and the mark into a property of the kind that the caller chose.
  // Throws error_need_repair when the value does not lie within the entry.
  void read_into(Property& property) const;

 private:
  friend class RecordReader;
  RecordEntry(std::uint32_t block, std::uint32_t offset, std::span<const std::byte> bytes)
      : block_(block), offset_(offset), bytes_(bytes) {}

  std::uint32_t block_;
  std::uint32_t offset_;
  std::span<const std::byte> bytes_;
};

// Steps through the entries of an object. Valid as long as the bytes are: those of a handle as long as it
// keeps its copy, those of a view until the next call that may read or commit a block.
class RecordReader {
 public:
  // Throws error_consistency when the object's header makes no sense.
  explicit RecordReader(const ObjectView& object);

  // The next entry; nothing after the last one.
  // Throws error_need_repair, naming block and offset, for an entry that does not lie within the object.
  std::optional<RecordEntry> next();

 private:
  std::uint32_t block_;
  std::uint32_t offset_;
  std::span<const std::byte> rest_;
};

// Calls `visit` with each entry in order. Throws what RecordReader and `visit` throw, when they do.
template <typename Visitor>
void for_each_entry(const ObjectView& object, Visitor&& visit) {
  RecordReader reader(object);
  while (const std::optional<RecordEntry> entry = reader.next())
    visit(*entry);
}

}  // namespace mdb
