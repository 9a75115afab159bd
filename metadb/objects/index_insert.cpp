#include <utility>

#include "common/errors.h"
#include "metadb/objects/index_search.h"
#include "metadb/objects/index_tree.h"

namespace mdb {

namespace {

std::uint32_t insert_position(const LeafView& leaf, IndexKey key) {
  const std::uint32_t count = leaf.nkeys();
  if (count == 0 || key < leaf.key(0))
    return 0;
  if (leaf.key(count - 1) < key)
    return count;
  return leaf_search_after(leaf, key);
}

bool comes_first(const NodeHandle& leaf, IndexKey key) {
  const LeafView view(leaf.bytes());
  return view.nkeys() == 0 || key < view.key(0);
}

// Inserts into a leaf with room, which is not journalled yet.
void insert_entry(NodeHandle& leaf, IndexKey key, ObjectReference data) {
  LeafEditor editor(leaf);
  const std::uint32_t position = insert_position(editor, key);
  if (position > 0 && editor.key(position - 1) > key) {
    throw error_fubar(text::concat("Simple leafnode insertion invariant failed: leafnode key at index ",
                                   position - 1, " is ", editor.key(position - 1), " which is < ", key,
                                   ". "));
  }
  editor.open_gap(position);
  editor.set_key(position, key);
  editor.set_data(position, data);
}

// Moves the smaller half to a new leaf. T1 holds for both; T3 waits for link_right_half.
NodeHandle split_leaf(NodeHandle& leaf) {
  NodeHandle right = index_new_leaf(leaf.block);
  LeafEditor right_half(right);
  LeafEditor(leaf).move_tail((LeafView(leaf.bytes()).nkeys() + 1) / 2, right_half);
  return right;
}

// T3: the new leaf stands between the old one and the old one's former right neighbour.
void link_right_half(NodeHandle& left, NodeHandle& right) {
  LeafEditor left_half(left);
  LeafEditor right_half(right);
  const std::uint32_t outer_block = left_half.neighbor(Side::right);
  if (outer_block != 0) {
    NodeHandle outer = load_neighbor(outer_block, Side::right);
    if (LeafView(outer.bytes()).neighbor(Side::left) != left.block) {
      throw error_fubar("Mismatched left/right pairs found");
    }
    LeafEditor(outer).set_neighbor(Side::left, right.block);
    journal_node(outer);
  }
  right_half.set_neighbor(Side::right, outer_block);
  right_half.set_neighbor(Side::left, left.block);
  left_half.set_neighbor(Side::right, right.block);
  journal_node(left);
  journal_node(right);
}

// A separator on its way into a node that may have to be split for it.
struct PendingSeparator {
  IndexKey key;
  std::uint32_t right_child;
  std::uint32_t position;  // the number of the child that it stands behind
};

// Gives `right` the keys behind `middle`, its child becoming child 0 there, and puts the pending separator
// into its half: by position, for its key may equal the middle one. Journals both.
void split_internal(NodeHandle& left, NodeHandle& right, std::uint32_t middle,
                    const PendingSeparator& pending) {
  InternalEditor left_half(left);
  InternalEditor right_half(right);
  right_half.set_child(0, left_half.child(middle + 1));
  left_half.move_tail(middle + 1, right_half);
  left_half.set_nkeys(middle);
  if (pending.position <= middle) {
    internal_insert_at(left, pending.key, pending.right_child, pending.position);
    journal_node(right);
  } else {
    internal_insert_at(right, pending.key, pending.right_child, pending.position - middle - 1);
    journal_node(left);
  }
}

// T4: the root keeps its block and gets two new nodes below it. The tree grows here only.
void split_root(NodeHandle& root, const PendingSeparator& pending) {
  const std::uint32_t count = InternalView(root.bytes()).nkeys();
  if (count < 2)
    throw error_internal("Root is split but has less than two keys");
  const IndexKey middle_key = InternalView(root.bytes()).key(count / 2);

  NodeHandle left = index_new_internal(root.block);
  NodeHandle right = index_new_internal(root.block);
  InternalEditor top(root);
  InternalEditor left_half(left);
  left_half.set_child(0, top.child(0));
  top.move_tail(0, left_half);
  split_internal(left, right, count / 2, pending);

  top.set_nkeys(1);
  top.set_child(0, left.block);
  top.set_key(0, middle_key);
  top.set_child(1, right.block);
  journal_node(root);
}

}  // namespace

void leaf_insert_simple(NodeHandle& leaf, IndexKey key, ObjectReference data) {
  insert_entry(leaf, key, data);
  journal_node(leaf);
}

void leaf_insert(NodeHandle leaf, SearchPath& path, IndexKey key, ObjectReference data) {
  index_check_leaf(leaf);
  const LeafView view(leaf.bytes());
  const bool is_new_first = comes_first(leaf, key);
  if (view.nkeys() < view.capacity()) {
    const std::uint32_t block = leaf.block;
    insert_entry(leaf, key, data);
    journal_node(std::move(leaf));
    if (is_new_first)
      rename_first_key(path, block, key);
    return;
  }
  NodeHandle right = split_leaf(leaf);
  if (LeafView(right.bytes()).key(0) <= key) {
    leaf_insert_simple(right, key, data);
  } else {
    leaf_insert_simple(leaf, key, data);
    if (is_new_first)
      rename_first_key(path, leaf.block, key);
  }
  link_right_half(leaf, right);
  internal_insert(path, LeafView(right.bytes()).key(0), right.block);
}

void internal_insert_at(NodeHandle& node, IndexKey key, std::uint32_t right_child, std::uint32_t position) {
  InternalEditor editor(node);
  const std::uint32_t count = editor.nkeys();
  if (position > count) {
    throw error_internal(
        text::concat("Index node fixed-pos. insertion in node ", node.block, " got index ", position));
  }
  if ((position > 0 && editor.key(position - 1) > key) || (position < count && editor.key(position) < key)) {
    throw error_fubar(
        text::concat("Index node holds badly ordered keys - or fixed position insert had bad value (key ",
                     key, " at index ", position, " of node ", node.block, "). "));
  }
  editor.open_gap(position);
  editor.set_key(position, key);
  editor.set_child(position + 1, right_child);
  journal_node(node);
}

void internal_insert(SearchPath& path, IndexKey key, std::uint32_t right_child) {
  if (path.empty())
    throw error_internal("Wanted to insert in index node with no self");
  const PendingSeparator pending = {key, right_child, path.bottom().child};
  NodeHandle node = load_node(path.bottom().block);
  index_check_internal(node);
  const InternalView view(node.bytes());
  const std::uint32_t count = view.nkeys();
  if (count < view.capacity()) {
    internal_insert_at(node, key, right_child, pending.position);
    return;
  }
  path.pop();
  if (path.empty()) {
    split_root(node, pending);
    return;
  }
  const IndexKey middle_key = view.key(count / 2);
  NodeHandle right = index_new_internal(node.block);
  split_internal(node, right, count / 2, pending);
  internal_insert(path, middle_key, right.block);
}

}  // namespace mdb
