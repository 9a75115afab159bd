// Keeping the trees in shape: insertion with splits, deletion with the removal of emptied nodes.
//
// All of it runs inside the caller's transaction. What is thrown leaves that transaction to be aborted.
// A search path given to these functions is used up by them. Invariants of a tree:
//
//   T1  Entries of a leaf, and the leaves along their links, are in key order; so are the keys of a node.
//   T2  No key left of a separator is above it, none right of it is below it.
//   T3  The leaves' links lead through all leaves in the order of the tree, both ways.
//   T4  The root never moves; it is the only node that may be empty.

#pragma once

#include <cstdint>

#include "metadb/objects/index_key.h"
#include "metadb/objects/index_node.h"
#include "metadb/objects/index_path.h"

namespace mdb {

// Inserts after all entries with the key; a full leaf is split. `path` leads to the leaf.
// Throws error_need_repair, error_fubar "Mismatched left/right pairs found", error_dbnospace.
void leaf_insert(NodeHandle leaf, SearchPath& path, IndexKey key, ObjectReference data);

// The same for a leaf that has room; leaves the separators above alone.
void leaf_insert_simple(NodeHandle& leaf, IndexKey key, ObjectReference data);

// Inserts a separator and the child right of it behind the child that the path's bottom element entered;
// a full node is split.
// Throws error_internal "Wanted to insert in index node with no self" for an empty path.
void internal_insert(SearchPath& path, IndexKey key, std::uint32_t right_child);

// The same at a position of a node that has room.
// Throws error_internal for a position past the keys, error_fubar when the order would break.
void internal_insert_at(NodeHandle& node, IndexKey key, std::uint32_t right_child, std::uint32_t position);

// Removes one entry; a leaf that becomes empty leaves the tree and its block is freed. Throws error_internal
// "Cannot delete index " for a position past the entries.
void leaf_delete_at(NodeHandle leaf, std::uint32_t position, SearchPath& path);

// Removes the child that the path's bottom element entered, which must be `child_block`, from that node.
// A node left without a child goes the same way; the root stays, empty.
// Throws error_internal, error_fubar.
void internal_delete_child(SearchPath& path, std::uint32_t child_block);

// Makes `key`, the first key of the leaf at the end of the path, the separator that leads to the leaf: the
// key left of the recorded child in the nearest node that was not entered at child 0.
// Throws error_internal when a node does not hold the child that it was left by, error_fubar for an empty
// path.
void rename_first_key(const SearchPath& path, std::uint32_t leaf_block, IndexKey key);

}  // namespace mdb
