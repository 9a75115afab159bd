#include "nodemodel/record_reader.h"

#include "common/bytes.h"
#include "common/errors.h"
#include "metadb/objects/objects.h"

namespace mdb {

namespace entry_format = format::property_entry;

namespace {

std::string place(std::uint32_t block, std::uint32_t offset) {
  return text::concat("at offset ", offset, " in block ", block);
}

}  // namespace

std::uint32_t RecordEntry::property_id() const {
  return bytes::load_u32(bytes_, entry_format::id);
}

std::uint32_t RecordEntry::type_code() const {
  return bytes::load_u32(bytes_, entry_format::type) & ~entry_format::mark_bit;
}

bool RecordEntry::is_marked() const {
  return (bytes::load_u32(bytes_, entry_format::type) & entry_format::mark_bit) != 0;
}

NodeId RecordEntry::node_id() const {
  PropertyNodeId property;
  read_into(property);
  return property.value();
}

bool RecordEntry::flag() const {
  PropertyBool property;
  read_into(property);
  return property.value();
}

void RecordEntry::read_into(Property& property) const {
  try {
    property.read(bytes_);
  } catch (error_need_repair& error) {
    error.description += " " + place(block_, offset_);
    throw;
  }
  property.mark = is_marked() ? 1 : 0;
}

RecordReader::RecordReader(const ObjectView& object) : block_(object.block), rest_(object_record(object)) {
  offset_ = object.offset + (object_length(object) - static_cast<std::uint32_t>(rest_.size()));
}

std::optional<RecordEntry> RecordReader::next() {
  if (rest_.empty())
    return std::nullopt;
  std::uint32_t length = 0;
  if (rest_.size() >= entry_format::value)
    length = bytes::load_u32(rest_, entry_format::length);
  if (length < entry_format::value || length > rest_.size()) {
    throw error_need_repair(text::concat("Record entry ", place(block_, offset_), " has length ", length,
                                         " with ", rest_.size(), " bytes left in its object"));
  }
  const RecordEntry entry(block_, offset_, rest_.first(length));
  offset_ += length;
  rest_ = rest_.subspan(length);
  return entry;
}

}  // namespace mdb
