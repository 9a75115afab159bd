#include <utility>

#include "common/errors.h"
#include "metadb/objects/index_tree.h"

namespace mdb {

namespace {

// Ties the neighbours of a leaf that leaves the tree to each other (T3).
void unlink_leaf(const NodeHandle& leaf) {
  const LeafView view(leaf.bytes());
  for (const Side side : {Side::left, Side::right}) {
    if (view.neighbor(side) == 0)
      continue;
    NodeHandle neighbor = load_neighbor(view.neighbor(side), side);
    LeafEditor editor(neighbor);
    if (editor.neighbor(opposite(side)) != leaf.block) {
      throw error_fubar("Mismatched left/right pairs found");
    }
    editor.set_neighbor(opposite(side), view.neighbor(opposite(side)));
    journal_node(neighbor);
  }
}

// A private copy of the node at the path's bottom, on the way of a deletion.
NodeHandle load_parent(const SearchPath& path) {
  NodeHandle node = load_node(path.bottom().block);
  if (!InternalView(node.bytes()).has_magic())
    throw_corrupt_block(node.block);
  index_check_internal(node);
  return node;
}

void check_recorded_child(const NodeHandle& node, std::uint32_t child, std::uint32_t child_block) {
  const InternalView view(node.bytes());
  if (child > view.nkeys()) {
    throw error_internal(text::concat("Cannot delete key left of key ", child, " in index node with ",
                                      view.nkeys(), " elements"));
  }
  if (view.child(child) != child_block) {
    throw error_fubar(text::concat("In index node ", node.block,
                                   " - Neither left nor right pointer of index ", child == 0 ? 0 : child - 1,
                                   " pointed to the deleted leaf (block ", child_block, ")"));
  }
}

// Takes a child out of a node that has another one.
void remove_child(NodeHandle& node, std::uint32_t child) {
  InternalEditor editor(node);
  if (child == 0) {
    editor.set_child(0, editor.child(1));
    editor.close_gap(0);
  } else {
    editor.close_gap(child - 1);
  }
  journal_node(node);
}

// The words for a node that does not hold the child it was left by; they name the one whose key changes.
std::string_view whose_first_key(std::size_t level, std::size_t depth) {
  if (level + 1 == depth)
    return "leaf";
  return level == 0 ? "root" : "index";
}

}  // namespace

void leaf_delete_at(NodeHandle leaf, std::uint32_t position, SearchPath& path) {
  index_check_leaf(leaf);
  LeafEditor editor(leaf);
  const std::uint32_t count = editor.nkeys();
  if (position >= count) {
    throw error_internal(
        text::concat("Cannot delete index ", position, " in leaf with ", count, " elements"));
  }
  if (count > 1) {
    editor.close_gap(position);
    rename_first_key(path, leaf.block, editor.key(0));
    journal_node(std::move(leaf));
    return;
  }
  internal_delete_child(path, leaf.block);
  editor.close_gap(position);
  unlink_leaf(leaf);
  index_free_block(leaf);
}

void internal_delete_child(SearchPath& path, std::uint32_t child_block) {
  if (path.empty())
    throw error_internal("Index node deletion called with empty search path");
  const std::uint32_t child = path.bottom().child;
  NodeHandle node = load_parent(path);
  check_recorded_child(node, child, child_block);
  if (InternalView(node.bytes()).nkeys() != 0) {
    remove_child(node, child);
    return;
  }
  path.pop();
  if (path.empty()) {  // T4
    InternalEditor(node).set_child(0, 0);
    journal_node(node);
    return;
  }
  internal_delete_child(path, node.block);
  index_free_block(node);
}

void rename_first_key(const SearchPath& path, std::uint32_t leaf_block, IndexKey key) {
  if (path.empty())
    throw error_fubar("Index key rename above root attempted");
  BlockBuffer scratch;
  std::uint32_t child_block = leaf_block;
  for (std::size_t level = path.size(); level-- > 0;) {
    const auto [block, child] = path[level];
    const InternalView parent = checked_internal(view_block(block, scratch), block);
    if (child > parent.nkeys() || parent.child(child) != child_block) {
      throw error_internal(text::concat("When fixing up first-key assumption in ",
                                        whose_first_key(level, path.size()), ": couldn't find ourselves..."));
    }
    if (child != 0) {
      if (parent.key(child - 1) == key)
        return;
      NodeHandle changed = load_node(block);
      InternalEditor(changed).set_key(child - 1, key);
      journal_node(changed);
      return;
    }
    child_block = block;
  }
}

}  // namespace mdb
