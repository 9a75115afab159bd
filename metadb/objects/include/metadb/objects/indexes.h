// The indexes of the meta database by number: which exist, which are unique, and what is done with them.
// A key is a node ID, an entry's data the reference of a record.
//
// Each operation that changes an index is one transaction, nested when the caller has one open: it happens
// whole or not at all, and becomes durable with the outermost transaction.

#pragma once

#include <cstdint>
#include <optional>

#include "metadb/objects/index_key.h"
#include "metadb/objects/index_search.h"

namespace mdb {

// The indexes that every database has; the numbers up to 5 belong to databases that count more roots.
inline constexpr std::uint32_t node_id_index = 0;    // a node's ID → its record; unique
inline constexpr std::uint32_t parent_id_index = 1;  // a parent's ID → the records of its children

// True for an index that maps each key to one reference. False for numbers of no index, too.
bool index_is_unique(std::uint32_t index);

// Checks that both indexes are defined and creates the roots that do not exist yet.
// Throws error_internal before the header is loaded, error_fubar when an index is missing or its root
// block holds something else.
void index_init();

// All below throw error_need_repair and error_fubar for damaged trees, and error_internal for an index of
// the wrong kind or none at all. Those that change an index do it in a transaction of their own, lazily
// durable, when none is open; they throw what it throws, and error_dbnospace when a split finds no block.

// The reference under a key of a unique index. The first search of an empty index makes its first leaf.
std::optional<ObjectReference> unique_search(std::uint32_t index, IndexKey key);

// Adds the one entry of the key, or with `must_exist` gives it new data.
// Throws error_index_conflict for an entry that exists, error_index_noentry for one that must and does not.
void unique_put(std::uint32_t index, IndexKey key, ObjectReference data, bool must_exist);

// Throws error_fubar "NodeId index deletion could not find element to delete".
void unique_delete(std::uint32_t index, IndexKey key);

// Adds an entry among those of the same key, in no order that means anything.
void nonunique_insert(std::uint32_t index, IndexKey key, ObjectReference data);

// The first entry of the key; nothing when it has none. The others follow by leaf_cursor_next, as long as
// the cursor is not at its end and has the key.
std::optional<LeafCursor> nonunique_search(std::uint32_t index, IndexKey key);

// Gives the entry with the key and the old data new data.
// Throws error_internal when there is none.
void nonunique_update(std::uint32_t index, IndexKey key, ObjectReference old_data, ObjectReference new_data);

// Removes the entry with the key and the data. Throws error_fubar when there is none.
void nonunique_delete(std::uint32_t index, IndexKey key, ObjectReference data);

}  // namespace mdb
