// Looking for keys: binary searches in nodes, the descent from the root, steps from leaf to leaf.

#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "metadb/objects/index_key.h"
#include "metadb/objects/index_node.h"
#include "metadb/objects/index_path.h"

namespace mdb {

// Positions of keys. The any- and first-variants give the first key that is not below `key`, or the last
// one when all are below; the any-variants may stop earlier, at an equal key. leaf_search_after gives the
// place behind all keys that are not above `key`.
// Throw error_internal "Binary search attempted on empty node".
std::uint32_t leaf_search_any(const LeafView& leaf, IndexKey key);
std::uint32_t leaf_search_first(const LeafView& leaf, IndexKey key);
std::uint32_t leaf_search_after(const LeafView& leaf, IndexKey key);
std::uint32_t internal_search_any(const InternalView& node, IndexKey key);
std::uint32_t internal_search_first(const InternalView& node, IndexKey key);

// Equal keys of a non-unique index may span leaves and whole subtrees, so it matters where one arrives.
enum class SearchMode {
  any,    // right of equal separators, at any equal entry: unique indexes, and every insertion
  first,  // left of equal separators, at or before the first equal entry of the whole tree
};

// An entry of a leaf; past the last one, the end of the index. Valid until the index changes.
struct LeafCursor {
  NodeHandle leaf;
  std::uint32_t position = 0;
  std::uint64_t leaf_steps = 0;  // leaves passed so far; bounds the walk over damaged leaves

  bool at_end() const { return position >= LeafView(leaf.bytes()).nkeys(); }
  // REQUIRES (both): not at_end().
  IndexKey key() const { return LeafView(leaf.bytes()).key(position); }
  ObjectReference data() const { return LeafView(leaf.bytes()).data(position); }
};

// Goes down from the root to the leaf for the key and returns its block; 0 when a node with keys has no
// child there. `path`, empty before, leads to the leaf. An empty internal node gets its first leaf, in a
// transaction of its own when none is open.
// Throws error_need_repair for damaged nodes, error_fubar when the neighbour of a first leaf is no leaf.
std::uint32_t index_find_leaf(std::uint32_t root, IndexKey key, SearchPath& path, SearchMode mode);

// The same, with a private copy of the leaf and the position that the mode's search finds in it (0 when
// the leaf is empty); nothing where index_find_leaf returns 0.
std::optional<LeafCursor> index_search(std::uint32_t root, IndexKey key, SearchPath& path, SearchMode mode);

// Steps to the next entry, over empty leaves; after the last one the cursor is at its end.
// Throws error_fubar "Loaded multi-leaf block not a leaf block", "Mismatched left/right pairs found".
void leaf_cursor_next(LeafCursor& cursor);

// Moves the cursor to the front of its leaf's right neighbour, which may be empty. REQUIRES: there is one.
// Throws error_fubar with `not_a_leaf` when there is no leaf, "Mismatched left/right pairs found" when it
// does not point back or the leaves run in a circle.
void leaf_cursor_enter_right(LeafCursor& cursor, std::string_view not_a_leaf);

// The tree below the root, level by level; damaged blocks are named, not thrown at.
std::string index_dump(std::uint32_t root);

// One node as index_dump prints it.
std::string index_dump_node(std::span<const std::byte> block);

}  // namespace mdb
