#include "metadb/objects/index_node.h"

#include <algorithm>
#include <utility>

#include "common/errors.h"
#include "common/log.h"
#include "metadb/objects/allocator.h"
#include "metadb/storage/backing_store.h"
#include "metadb/storage/journal.h"

namespace mdb {

namespace {

void check_count(const NodeView& node, std::uint32_t block) {
  if (node.nkeys() > node.capacity())
    throw_corrupt_block(block);
}

// Writes an empty node's header and zeroed entries; what lies beyond them stays as it was.
void write_empty_node(NodeHandle& node, const format::NodeLayout& layout) {
  const std::span<std::byte> block = node.data.bytes();
  const std::size_t zeroed_end = layout.first_zeroed + layout.zeroed_size(block.size());
  std::fill_n(block.begin(), zeroed_end, std::byte{0});
  bytes::store_u32(block, format::node_magic, layout.magic);
  journal_node(node);
}

}  // namespace

template <typename View>
void NodeEditor<View>::open_gap(std::uint32_t index) {
  const std::uint32_t count = this->nkeys();
  const std::span<std::byte> moved = entries(index, count - index);
  std::copy_backward(moved.begin(), moved.end(), entries(index, count - index + 1).end());
  set_nkeys(count + 1);
}

template <typename View>
void NodeEditor<View>::close_gap(std::uint32_t index) {
  const std::uint32_t count = this->nkeys();
  const std::span<std::byte> moved = entries(index + 1, count - index - 1);
  std::copy(moved.begin(), moved.end(), entries(index, 1).begin());
  set_nkeys(count - 1);
}

template <typename View>
void NodeEditor<View>::move_tail(std::uint32_t first, NodeEditor& to) {
  const std::uint32_t count = this->nkeys() - first;
  const std::span<std::byte> moved = entries(first, count);
  std::copy(moved.begin(), moved.end(), to.entries(0, count).begin());
  to.set_nkeys(count);
  set_nkeys(first);
}

template class NodeEditor<LeafView>;
template class NodeEditor<InternalView>;

NodeHandle load_node(std::uint32_t block) {
  return {block, read_block_copy(block)};
}

NodeHandle load_neighbor(std::uint32_t block, Side side) {
  NodeHandle node = load_node(block);
  if (!LeafView(node.bytes()).has_magic()) {
    throw error_fubar(side == Side::left ? "Left neighbor is not a leaf node"
                                         : "Right neighbor is not a leaf node");
  }
  index_check_leaf(node);
  return node;
}

void journal_node(const NodeHandle& node) {
  transaction_update(node.bytes(), std::uint64_t{node.block} * block_size());
}

void journal_node(NodeHandle&& node) {
  write_block_copy(node.block, std::move(node.data));
}

LeafView checked_leaf(std::span<const std::byte> bytes, std::uint32_t block) {
  const LeafView leaf(bytes);
  if (!leaf.has_magic())
    throw error_need_repair("Index data block had bad magic");
  check_count(leaf, block);
  return leaf;
}

InternalView checked_internal(std::span<const std::byte> bytes, std::uint32_t block) {
  const InternalView node(bytes);
  if (!node.has_magic())
    throw error_need_repair("Index internal node block had bad magic");
  check_count(node, block);
  return node;
}

void index_check_leaf(const NodeHandle& node) {
  checked_leaf(node.bytes(), node.block);
}
void index_check_internal(const NodeHandle& node) {
  checked_internal(node.bytes(), node.block);
}

void throw_corrupt_block(std::uint32_t block) {
  throw error_need_repair(text::concat("Corrupt index block at ", block));
}

bool index_create_root(std::uint32_t block) {
  const BlockClass old_class = mark_query(block);
  if (old_class == BlockClass::root_index)
    return false;
  if (old_class != BlockClass::empty) {
    throw error_fubar(text::concat("Non-index node at index-block ", block));
  }
  Transaction transaction;
  mark_block(block, BlockClass::root_index);
  NodeHandle root = load_node(block);
  write_empty_node(root, format::internal::layout);
  transaction.end();
  log(logging::information, logging::index, "Created root index node at block ", block);
  return true;
}

NodeHandle index_new_internal(std::uint32_t hint) {
  NodeHandle node = load_node(alloc_empty_block(hint, true));
  write_empty_node(node, format::internal::layout);
  mark_block(node.block, BlockClass::non_root_index);
  return node;
}

NodeHandle index_new_leaf(std::uint32_t hint) {
  const std::uint32_t block = alloc_empty_block(hint, true);
  mark_block(block, BlockClass::leaf);
  NodeHandle leaf = load_node(block);
  write_empty_node(leaf, format::leaf::layout);
  return leaf;
}

void index_free_block(NodeHandle& node) {
  constexpr std::string_view found_that = "When deleting index block ";
  switch (mark_query(node.block)) {
    case BlockClass::empty:
      throw error_fubar(
          text::concat(found_that, node.block, " we found that the block is already marked as free"));
    case BlockClass::root_index:
      log(logging::warning, logging::index, "Deallocating index root node ", node.block);
      break;
    case BlockClass::non_root_index:
    case BlockClass::leaf:
      break;
    default:
      throw error_fubar(text::concat(found_that, node.block,
                                     " we found that the allocation map does not "
                                     "agree that this is an index block"));
  }
  std::ranges::fill(node.data.bytes(), std::byte{0});
  journal_node(node);
  mark_block(node.block, BlockClass::empty);
}

std::uint64_t store_block_count() {
  return backing_size() / block_size();
}

}  // namespace mdb
