// Which properties of a record are indexed, and how the indexes follow a record.

#pragma once

#include <array>
#include <cstdint>
#include <optional>

#include "metadb/objects/index_key.h"
#include "metadb/objects/object_handle.h"
#include "nodemodel/record_format.h"

namespace mdb {

// An index that records enter by a property which holds a node id, or not at all while they lack it.
struct IndexRule {
  std::uint32_t index;
  std::uint32_t key_property;
  std::optional<std::uint32_t> condition;  // a flag that must be there, and true, besides
};

// In the order in which the indexes are kept.
inline constexpr std::array<IndexRule, 6> index_rules = {{
    {.index = 0, .key_property = property_id::node_id, .condition = {}},
    {.index = 1, .key_property = property_id::parent_id, .condition = {}},
    {.index = 3, .key_property = 59, .condition = {}},
    {.index = 4, .key_property = 3800, .condition = {}},
    {.index = 5, .key_property = 3901, .condition = {}},
    {.index = 2, .key_property = property_id::parent_id, .condition = 502},
}};

// A record as the indexes see it: where it is, and its key for each rule that it comes under.
struct IndexedRecord {
  ObjectReference reference;
  std::array<std::optional<IndexKey>, index_rules.size()> keys;
};

// Throws error_need_repair for entries that do not lie within the object or are too short for their values.
IndexedRecord indexed_record(const ObjectHandle& object);

// Takes every index from the old record to the new one; a record without keys stands for none.
// REQUIRES: a transaction is open. Throws what the operations of the indexes throw.
void update_indexes(const IndexedRecord& old_record, const IndexedRecord& new_record);

}  // namespace mdb
