// The nodes of an index tree: looking into them, changing private copies of them, making and freeing them.
// Every change is made on a private copy, which is then journalled whole inside the open transaction.

#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>

#include "metadb/objects/index_format.h"
#include "metadb/objects/index_key.h"
#include "metadb/storage/block_copy.h"

namespace mdb {

// A node while it is worked on: its block number and a private copy of the block.
struct NodeHandle {
  std::uint32_t block = 0;
  BlockBuffer data;

  std::span<const std::byte> bytes() const { return data.bytes(); }
};

enum class Side { left, right };
// The other side.
constexpr Side opposite(Side side) {
  return side == Side::left ? Side::right : Side::left;
}

// Looks into a block as a node of one kind. Valid as long as the bytes are.
// REQUIRES (all with an index): it is at most the number of keys that the node has room for.
class NodeView {
 public:
  bool has_magic() const { return bytes::load_u32(bytes_, format::node_magic) == layout_->magic; }
  std::uint32_t nkeys() const { return bytes::load_u32(bytes_, layout_->nkeys); }
  // The number of keys that the node has room for.
  std::uint32_t capacity() const { return layout_->capacity(bytes_.size()); }
  IndexKey key(std::uint32_t index) const {
    const std::size_t at = entry(index);
    return {bytes::load_u32(bytes_, at + format::node_key::k0),
            bytes::load_u32(bytes_, at + format::node_key::k1)};
  }

 protected:
  NodeView(const format::NodeLayout& layout, std::span<const std::byte> block)
      : layout_(&layout), bytes_(block) {}

  const format::NodeLayout& layout() const { return *layout_; }
  // The word at a byte offset of the block.
  std::uint32_t word(std::size_t offset) const { return bytes::load_u32(bytes_, offset); }
  // Byte offset of an entry.
  std::size_t entry(std::uint32_t index) const {
    return layout_->first_entry + std::size_t{index} * layout_->entry_size;
  }

 private:
  const format::NodeLayout* layout_;
  std::span<const std::byte> bytes_;
};

class LeafView : public NodeView {
 public:
  explicit LeafView(std::span<const std::byte> block) : NodeView(format::leaf::layout, block) {}

  // The neighbour's block; 0 for none.
  std::uint32_t neighbor(Side side) const { return word(neighbor_offset(side)); }
  ObjectReference data(std::uint32_t index) const {
    return {word(entry(index) + format::leaf::data_block), word(entry(index) + format::leaf::data_offset)};
  }

 protected:
  // Byte offset of the neighbour's number.
  static constexpr std::size_t neighbor_offset(Side side) {
    return side == Side::left ? format::leaf::left : format::leaf::right;
  }
};

class InternalView : public NodeView {
 public:
  explicit InternalView(std::span<const std::byte> block) : NodeView(format::internal::layout, block) {}

  // The block of child 0 … nkeys; keys equal to key i lie in child i + 1, or in several from child i on.
  std::uint32_t child(std::uint32_t number) const { return word(child_offset(number)); }
  // True for the root of an empty index: no keys and no child.
  bool is_empty() const { return nkeys() == 0 && child(0) == 0; }

 protected:
  // Byte offset of a child's number.
  static constexpr std::size_t child_offset(std::uint32_t number) {
    return format::internal::first_child + std::size_t{number} * format::internal::entry_size;
  }
};

// Changes the private copy of a node. Valid as long as the handle keeps its copy.
template <typename View>
class NodeEditor : public View {
 public:
  explicit NodeEditor(NodeHandle& node) : View(std::as_const(node).bytes()), block_(node.data.bytes()) {}

  // Stores the number of keys. REQUIRES: count <= capacity().
  void set_nkeys(std::uint32_t count) { store(this->layout().nkeys, count); }
  // Stores the key of an entry, not what comes with it.
  void set_key(std::uint32_t index, IndexKey key) {
    store(this->entry(index) + format::node_key::k0, key.k0);
    store(this->entry(index) + format::node_key::k1, key.k1);
  }

  // Makes room for one more entry at `index`. REQUIRES: index ≤ nkeys < capacity.
  void open_gap(std::uint32_t index);
  // Takes out the entry at `index`. REQUIRES: index < nkeys.
  void close_gap(std::uint32_t index);
  // Moves the entries from `first` to the end of this node to the front of `to`, an empty node.
  void move_tail(std::uint32_t first, NodeEditor& to);

 protected:
  // Stores a word at a byte offset of the block.
  void store(std::size_t offset, std::uint32_t value) { bytes::store_u32(block_, offset, value); }

 private:
  std::span<std::byte> entries(std::uint32_t first, std::uint32_t count) {
    return block_.subspan(this->entry(first), std::size_t{count} * this->layout().entry_size);
  }

  std::span<std::byte> block_;
};

class LeafEditor : public NodeEditor<LeafView> {
 public:
  using NodeEditor::NodeEditor;

  // Stores the number of the neighbour's block; 0 for none.
  void set_neighbor(Side side, std::uint32_t block) { store(neighbor_offset(side), block); }
  // Stores where the record of an entry is.
  void set_data(std::uint32_t index, ObjectReference data) {
    store(entry(index) + format::leaf::data_block, data.block);
    store(entry(index) + format::leaf::data_offset, data.offset);
  }
};

class InternalEditor : public NodeEditor<InternalView> {
 public:
  using NodeEditor::NodeEditor;

  // Stores the block of a child; child 0 is left of all keys.
  void set_child(std::uint32_t number, std::uint32_t block) { store(child_offset(number), block); }
};

// A private copy of the block. Throws what reading throws.
NodeHandle load_node(std::uint32_t block);

// A private copy of the leaf that a leaf names as its neighbour at `side`.
// Throws error_fubar "Left neighbor is not a leaf node" and its sibling.
NodeHandle load_neighbor(std::uint32_t block, Side side);

// Journals the whole block. REQUIRES: a transaction is open. Throws what transaction_update throws.
void journal_node(const NodeHandle& node);
// The same for a node that is done with; the handle keeps no more than the block's number.
void journal_node(NodeHandle&& node);

// Checks the magic and that the count fits; throws error_need_repair.
void index_check_leaf(const NodeHandle& node);
void index_check_internal(const NodeHandle& node);

// The same for bytes that are only looked at.
LeafView checked_leaf(std::span<const std::byte> bytes, std::uint32_t block);
InternalView checked_internal(std::span<const std::byte> bytes, std::uint32_t block);

// Throws error_need_repair "Corrupt index block at " and the block.
[[noreturn]] void throw_corrupt_block(std::uint32_t block);

// Turns an Empty block into an empty root, in a transaction of its own when none is open. Returns false,
// and changes nothing, when the block is a root already.
// Throws error_fubar for a block that holds anything else.
bool index_create_root(std::uint32_t block);

// Allocate, mark and journal an empty node near block `hint`. REQUIRES: a transaction is open. Throw
// error_dbnospace without an Empty block, and what growing the store and transaction_update throw.
NodeHandle index_new_internal(std::uint32_t hint);
NodeHandle index_new_leaf(std::uint32_t hint);

// Zeroes the node's block and gives it back to the allocator. REQUIRES: a transaction is open.
// Throws error_fubar when the allocation map says that this is no index block.
void index_free_block(NodeHandle& node);

// The number of whole blocks in the store: no walk over a sound tree visits more.
std::uint64_t store_block_count();

}  // namespace mdb
