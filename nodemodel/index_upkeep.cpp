#include "index_upkeep.h"

#include <algorithm>

#include "metadb/objects/indexes.h"
#include "nodemodel/record_reader.h"

namespace mdb {

namespace {

// The properties that the rules ask for.
constexpr std::array<std::uint32_t, 6> indexed_properties = {
    property_id::node_id, property_id::parent_id, 502, 59, 3800, 3901};

using FoundEntries = std::array<std::optional<RecordEntry>, indexed_properties.size()>;

std::size_t slot_of(std::uint32_t property_id) {
  return static_cast<std::size_t>(std::ranges::find(indexed_properties, property_id) -
                                  indexed_properties.begin());
}

// The first entry of each indexed property; reads no further than it has to.
FoundEntries find_indexed_entries(const ObjectHandle& object) {
  FoundEntries found;
  std::size_t missing = found.size();
  RecordReader reader(object);
  while (missing > 0) {
    const std::optional<RecordEntry> entry = reader.next();
    if (!entry)
      break;
    const std::size_t slot = slot_of(entry->property_id());
    if (slot == found.size() || found[slot])
      continue;
    found[slot] = entry;
    --missing;
  }
  return found;
}

bool comes_under(const IndexRule& rule, const FoundEntries& found) {
  if (!found[slot_of(rule.key_property)])
    return false;
  if (!rule.condition)
    return true;
  const std::optional<RecordEntry>& condition = found[slot_of(*rule.condition)];
  return condition && condition->flag();
}

void add_entry(std::uint32_t index, IndexKey key, ObjectReference reference) {
  if (index_is_unique(index)) {
    unique_put(index, key, reference, false);
  } else {
    nonunique_insert(index, key, reference);
  }
}

void move_entry(std::uint32_t index, IndexKey key, ObjectReference from, ObjectReference to) {
  if (index_is_unique(index)) {
    unique_put(index, key, to, true);
  } else {
    nonunique_update(index, key, from, to);
  }
}

void remove_entry(std::uint32_t index, IndexKey key, ObjectReference reference) {
  if (index_is_unique(index)) {
    unique_delete(index, key);
  } else {
    nonunique_delete(index, key, reference);
  }
}

}  // namespace

IndexedRecord indexed_record(const ObjectHandle& object) {
  IndexedRecord record{object.reference(), {}};
  const FoundEntries found = find_indexed_entries(object);
  for (std::size_t i = 0; i < index_rules.size(); ++i) {
    if (comes_under(index_rules[i], found)) {
      record.keys[i] = found[slot_of(index_rules[i].key_property)]->node_id();
    }
  }
  return record;
}

void update_indexes(const IndexedRecord& old_record, const IndexedRecord& new_record) {
  const bool moved = old_record.reference != new_record.reference;
  for (std::size_t i = 0; i < index_rules.size(); ++i) {
    const std::uint32_t index = index_rules[i].index;
    const std::optional<IndexKey>& old_key = old_record.keys[i];
    const std::optional<IndexKey>& new_key = new_record.keys[i];
    if (old_key == new_key) {
      if (new_key && moved)
        move_entry(index, *new_key, old_record.reference, new_record.reference);
      continue;
    }
    if (old_key)
      remove_entry(index, *old_key, old_record.reference);
    if (new_key)
      add_entry(index, *new_key, new_record.reference);
  }
}

}  // namespace mdb
