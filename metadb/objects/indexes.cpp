#include "metadb/objects/indexes.h"

#include <algorithm>
#include <array>
#include <utility>

#include "common/errors.h"
#include "common/log.h"
#include "common/meters.h"
#include "metadb/objects/index_tree.h"
#include "metadb/storage/journal.h"
#include "metadb/storage/mdb_header.h"

namespace mdb {

namespace {

meter::Group index_meters(nullptr, "index");
meter::IntegerCounter uniq_direct_search(index_meters, "uniq_direct_search", "",
                                         "Unique index direct searches");
meter::IntegerCounter uniq_generic_search(index_meters, "uniq_generic_search", "",
                                          "Unique index generic searches");

constexpr std::array<bool, max_index_count> unique_flags = {true, false, false, false, false, false};

bool index_exists(std::uint32_t index) {
  return mdb_header_is_loaded() && index < std::min(index_root_count(), max_index_count);
}

void require_index(std::uint32_t index, std::string_view complaint) {
  if (!index_exists(index))
    throw error_internal(std::string(complaint));
}

void require_unique_index(std::uint32_t index, std::string_view complaint) {
  if (!index_is_unique(index) || !index_exists(index))
    throw error_internal(std::string(complaint));
}

// A generic search of an existing index, with the variant that its kind asks for.
LeafCursor search_leaf(std::uint32_t index, IndexKey key, SearchPath& path, SearchMode mode) {
  if (index_is_unique(index))
    uniq_generic_search.increment();
  std::optional<LeafCursor> found = index_search(index_root(index), key, path, mode);
  if (!found)
    throw error_internal("Generic search for data returned no data");
  return std::move(*found);
}

bool is_at_key(const LeafCursor& cursor, IndexKey key) {
  return !cursor.at_end() && cursor.key() == key;
}

void store_data(LeafCursor cursor, ObjectReference data) {
  LeafEditor(cursor.leaf).set_data(cursor.position, data);
  journal_node(std::move(cursor.leaf));
}

// How the two sides of a leaf complain about its neighbours.
struct NeighborComplaints {
  Side side;
  std::string_view no_leaf;
  std::string_view not_linked_back;
};
constexpr std::array<NeighborComplaints, 2> neighbor_complaints = {{
    {Side::left, "Left pointer set, but no data found", "Our left element points to a bad right element"},
    {Side::right, "Right pointer set, but no data found", "Our right element points to a bad left element"},
}};

void check_neighbors(const NodeHandle& leaf) {
  BlockBuffer scratch;
  for (const NeighborComplaints& complaints : neighbor_complaints) {
    const std::uint32_t block = LeafView(leaf.bytes()).neighbor(complaints.side);
    if (block == 0)
      continue;
    if (block >= store_block_count())
      throw error_fubar(std::string(complaints.no_leaf));
    const LeafView neighbor(view_block(block, scratch));
    if (!neighbor.has_magic())
      throw error_fubar(std::string(complaints.no_leaf));
    if (neighbor.neighbor(opposite(complaints.side)) != leaf.block) {
      throw error_fubar(std::string(complaints.not_linked_back));
    }
  }
}

// A cursor on the first entry whose key is not below `key`, or at the end of the index.
LeafCursor search_first(std::uint32_t index, IndexKey key) {
  SearchPath path;
  LeafCursor cursor = search_leaf(index, key, path, SearchMode::first);
  if (cursor.at_end() || cursor.key() < key)
    leaf_cursor_next(cursor);
  return cursor;
}

// Why a deletion found nothing where its cursor stands.
[[noreturn]] void throw_not_deletable(std::uint32_t index, const LeafCursor& cursor, IndexKey key,
                                      ObjectReference data) {
  const LeafView leaf(cursor.leaf.bytes());
  if (leaf.nkeys() == 0) {
    throw error_fubar(
        text::concat("Non-unique index (", index, ") deletion could not find non-empty leaf for deletion"));
  }
  if (!cursor.at_end() && cursor.data() == data) {
    throw error_fubar(text::concat("Bad id (", cursor.key(), ") when searching for ", key, " at index ",
                                   cursor.position, " with correct data in leaf ",
                                   index_dump_node(cursor.leaf.bytes())));
  }
  throw error_fubar(text::concat("Non-unique index (", index, ") deletion could not find element to delete"));
}

// Moves cursor and path together over entries below `key`, and over those with it and other data, to the
// entry to delete.
void find_for_deletion(std::uint32_t index, LeafCursor& cursor, SearchPath& path, IndexKey key,
                       ObjectReference data) {
  for (;;) {
    if (!cursor.at_end()) {
      if (cursor.key() == key && cursor.data() == data)
        return;
      if (cursor.key() > key)
        throw_not_deletable(index, cursor, key, data);
      ++cursor.position;
      continue;
    }
    if (LeafView(cursor.leaf.bytes()).neighbor(Side::right) == 0) {
      throw_not_deletable(index, cursor, key, data);
    }
    leaf_cursor_enter_right(cursor, "Could not load right leaf when searching for leaf to delete key from");
    searchpath_linkto_right(path, cursor.leaf.block);
  }
}

}  // namespace

bool index_is_unique(std::uint32_t index) {
  return index < max_index_count && unique_flags[index];
}

void index_init() {
  if (!mdb_header_is_loaded()) {
    throw error_internal("Index initialization attempted before MDB was initialized");
  }
  if (index_root_count() < 2) {
    throw error_fubar("Meta database does not have the two required indexes defined");
  }
  for (const std::uint32_t index : {node_id_index, parent_id_index})
    index_create_root(index_root(index));
  log(logging::information, logging::index, "Node ID and Parent ID indexes are initialized");
}

std::optional<ObjectReference> unique_search(std::uint32_t index, IndexKey key) {
  require_unique_index(index, "Attempt to use unique search on non-unique index");
  uniq_generic_search.increment();
  SearchPath path;
  const std::uint32_t block = index_find_leaf(index_root(index), key, path, SearchMode::any);
  if (block == 0)
    throw error_internal("Generic search for data returned no data");
  BlockBuffer scratch;
  const LeafView leaf = checked_leaf(view_block(block, scratch), block);
  if (leaf.nkeys() == 0)
    return std::nullopt;
  const std::uint32_t position = leaf_search_any(leaf, key);
  if (leaf.key(position) != key)
    return std::nullopt;
  return leaf.data(position);
}

void unique_put(std::uint32_t index, IndexKey key, ObjectReference data, bool must_exist) {
  require_unique_index(index, "Attempt to use unique update on non-unique index");
  Transaction transaction;
  SearchPath path;
  LeafCursor found = search_leaf(index, key, path, SearchMode::any);
  if (is_at_key(found, key)) {
    if (!must_exist) {
      throw error_index_conflict(
          text::concat("Conflict on ID ", key, " previously ", found.data(), " new ", data));
    }
    store_data(std::move(found), data);
  } else {
    if (must_exist)
      throw error_index_noentry(text::concat("Missing entry for ID ", key, " new ", data));
    check_neighbors(found.leaf);
    leaf_insert(std::move(found.leaf), path, key, data);
  }
  transaction.end();
}

void unique_delete(std::uint32_t index, IndexKey key) {
  require_unique_index(index, "Attempt to use unique delete on non-unique index");
  Transaction transaction;
  SearchPath path;
  LeafCursor found = search_leaf(index, key, path, SearchMode::any);
  if (!is_at_key(found, key))
    throw error_fubar("NodeId index deletion could not find element to delete");
  leaf_delete_at(std::move(found.leaf), found.position, path);
  transaction.end();
}

void nonunique_insert(std::uint32_t index, IndexKey key, ObjectReference data) {
  require_index(index, "Attempt to insert in non-unique non-existant index");
  Transaction transaction;
  SearchPath path;
  LeafCursor found = search_leaf(index, key, path, SearchMode::any);
  leaf_insert(std::move(found.leaf), path, key, data);
  transaction.end();
}

std::optional<LeafCursor> nonunique_search(std::uint32_t index, IndexKey key) {
  require_index(index, "Attempt to search in non-existant non-unique index");
  LeafCursor cursor = search_first(index, key);
  if (!is_at_key(cursor, key))
    return std::nullopt;
  return cursor;
}

void nonunique_update(std::uint32_t index, IndexKey key, ObjectReference old_data, ObjectReference new_data) {
  require_index(index, "Attempt to update non-existant non-unique index");
  Transaction transaction;
  std::uint64_t candidates = 0;
  LeafCursor cursor = search_first(index, key);
  for (; is_at_key(cursor, key); leaf_cursor_next(cursor)) {
    ++candidates;
    if (cursor.data() != old_data)
      continue;
    store_data(std::move(cursor), new_data);
    transaction.end();
    return;
  }
  throw error_internal(text::concat("Update of non-unique index using non-existing block handle (",
                                    candidates, " candidates)"));
}

void nonunique_delete(std::uint32_t index, IndexKey key, ObjectReference data) {
  require_index(index, "Attempt to delete from non-unique non-existant index");
  Transaction transaction;
  SearchPath path;
  LeafCursor cursor = search_leaf(index, key, path, SearchMode::first);
  find_for_deletion(index, cursor, path, key, data);
  leaf_delete_at(std::move(cursor.leaf), cursor.position, path);
  transaction.end();
}

}  // namespace mdb
