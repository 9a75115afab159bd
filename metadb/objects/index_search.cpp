#include "metadb/objects/index_search.h"

#include "common/errors.h"
#include "metadb/storage/journal.h"

namespace mdb {

namespace {

// What a probe that meets the key does.
enum class OnEqual { stop, search_left, search_right };

// The one binary search of both kinds of node: where the range has shrunk to one position.
std::uint32_t binary_search(const NodeView& node, IndexKey key, OnEqual on_equal) {
  if (node.nkeys() == 0)
    throw error_internal("Binary search attempted on empty node");
  std::uint32_t low = 0;
  std::uint32_t high = node.nkeys() - 1;
  while (low < high) {
    const std::uint32_t middle = low + (high - low) / 2;
    const std::strong_ordering probe = node.key(middle) <=> key;
    if (probe < 0 || (probe == 0 && on_equal == OnEqual::search_right)) {
      low = middle + 1;
    } else if (probe > 0 || (probe == 0 && on_equal == OnEqual::search_left)) {
      high = middle;
    } else if (probe == 0) {
      return middle;
    } else {
      throw error_internal("Binary search invariant broken");
    }
  }
  return low;
}

// The child whose keys include `key`, seen from the mode's side of equal separators.
std::uint32_t choose_child(const InternalView& node, IndexKey key, SearchMode mode) {
  if (node.nkeys() == 0)
    return 0;
  if (mode == SearchMode::any) {
    const std::uint32_t position = internal_search_any(node, key);
    return node.key(position) <= key ? position + 1 : position;
  }
  const std::uint32_t position = internal_search_first(node, key);
  return node.key(position) < key ? position + 1 : position;
}

// Ties the new leaf to the nearest leaf at one side of the path, if there is one.
void link_first_leaf(NodeHandle& leaf, SearchPath path, Side side) {
  const std::uint32_t neighbor_block = searchpath_step(path, side);
  if (neighbor_block == 0)
    return;
  NodeHandle neighbor = load_neighbor(neighbor_block, side);
  LeafEditor(neighbor).set_neighbor(opposite(side), leaf.block);
  journal_node(neighbor);
  LeafEditor(leaf).set_neighbor(side, neighbor_block);
}

// Puts an empty leaf under the empty internal node at the path's bottom and returns its block.
std::uint32_t create_first_leaf(const SearchPath& path) {
  std::optional<Transaction> own_transaction;
  if (!transaction_is_open())
    own_transaction.emplace();
  NodeHandle leaf = index_new_leaf(path.bottom().block);
  NodeHandle parent = load_node(path.bottom().block);
  InternalEditor(parent).set_child(0, leaf.block);
  index_check_leaf(leaf);
  for (const Side side : {Side::right, Side::left})
    link_first_leaf(leaf, path, side);
  journal_node(parent);
  journal_node(leaf);
  if (own_transaction)
    own_transaction->end();
  return leaf.block;
}

}  // namespace

std::uint32_t leaf_search_any(const LeafView& leaf, IndexKey key) {
  return binary_search(leaf, key, OnEqual::stop);
}

std::uint32_t leaf_search_first(const LeafView& leaf, IndexKey key) {
  return binary_search(leaf, key, OnEqual::search_left);
}

std::uint32_t leaf_search_after(const LeafView& leaf, IndexKey key) {
  const std::uint32_t last = binary_search(leaf, key, OnEqual::search_right);
  return leaf.key(last) <= key ? last + 1 : last;
}

std::uint32_t internal_search_any(const InternalView& node, IndexKey key) {
  return binary_search(node, key, OnEqual::stop);
}

std::uint32_t internal_search_first(const InternalView& node, IndexKey key) {
  return binary_search(node, key, OnEqual::search_left);
}

std::uint32_t index_find_leaf(std::uint32_t root, IndexKey key, SearchPath& path, SearchMode mode) {
  BlockBuffer scratch;
  std::uint32_t block = root;
  for (;;) {
    const std::span<const std::byte> bytes = view_block(block, scratch);
    if (LeafView(bytes).has_magic())
      return block;
    const InternalView node = checked_internal(bytes, block);
    path.push(block);
    if (node.is_empty())
      return create_first_leaf(path);
    path.set_bottom_child(choose_child(node, key, mode));
    block = node.child(path.bottom().child);
    if (block == 0)
      return 0;
  }
}

std::optional<LeafCursor> index_search(std::uint32_t root, IndexKey key, SearchPath& path, SearchMode mode) {
  const std::uint32_t block = index_find_leaf(root, key, path, mode);
  if (block == 0)
    return std::nullopt;
  LeafCursor cursor{load_node(block)};
  index_check_leaf(cursor.leaf);
  const LeafView leaf(cursor.leaf.bytes());
  if (leaf.nkeys() != 0) {
    cursor.position = mode == SearchMode::any ? leaf_search_any(leaf, key) : leaf_search_first(leaf, key);
  }
  return cursor;
}

void leaf_cursor_enter_right(LeafCursor& cursor, std::string_view not_a_leaf) {
  const std::uint32_t block = LeafView(cursor.leaf.bytes()).neighbor(Side::right);
  if (block >= store_block_count())
    throw error_fubar(std::string(not_a_leaf));
  NodeHandle next = load_node(block);
  if (!LeafView(next.bytes()).has_magic())
    throw error_fubar(std::string(not_a_leaf));
  index_check_leaf(next);
  if (LeafView(next.bytes()).neighbor(Side::left) != cursor.leaf.block ||
      ++cursor.leaf_steps > store_block_count()) {
    throw error_fubar("Mismatched left/right pairs found");
  }
  cursor.leaf = std::move(next);
  cursor.position = 0;
}

void leaf_cursor_next(LeafCursor& cursor) {
  if (!cursor.at_end())
    ++cursor.position;
  while (cursor.at_end() && LeafView(cursor.leaf.bytes()).neighbor(Side::right) != 0) {
    leaf_cursor_enter_right(cursor, "Loaded multi-leaf block not a leaf block");
  }
}

}  // namespace mdb
