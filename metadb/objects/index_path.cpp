#include "metadb/objects/index_path.h"

#include "common/errors.h"

namespace mdb {

namespace {

// Moves the bottom element to the next child at `side`; false when it stands at the last one.
bool advance_bottom(SearchPath& path, const InternalView& node, Side side) {
  const std::uint32_t child = path.bottom().child;
  if (node.is_empty())
    return false;
  if (side == Side::right ? child >= node.nkeys() : child == 0)
    return false;
  path.set_bottom_child(side == Side::right ? child + 1 : child - 1);
  return true;
}

// Goes down from the bottom element's child along the edge that is met first when coming towards `side`.
// Returns the block below the last internal node; 0 when that node is empty.
std::uint32_t descend_edge(SearchPath& path, std::uint32_t block, Side side) {
  BlockBuffer scratch;
  for (;;) {
    const std::span<const std::byte> bytes = view_block(block, scratch);
    if (!InternalView(bytes).has_magic())
      return block;
    const InternalView node = checked_internal(bytes, block);
    path.push(block);
    path.set_bottom_child(side == Side::right ? 0 : node.nkeys());
    block = node.child(path.bottom().child);
    if (block == 0)
      return 0;
  }
}

}  // namespace

void SearchPath::push(std::uint32_t block) {
  if (size_ == max_depth)
    throw_corrupt_block(block);
  elements_[size_++] = {block, 0};
}

void SearchPath::set_bottom_child(std::uint32_t child) {
  if (empty()) {
    throw error_internal(text::concat("Attempted to modify searchpath bottom element with length ", size_));
  }
  elements_[size_ - 1].child = child;
}

std::uint32_t searchpath_step(SearchPath& path, Side side) {
  BlockBuffer scratch;
  std::uint64_t steps_left = store_block_count();
  while (!path.empty()) {
    const std::uint32_t block = path.bottom().block;
    const InternalView node = checked_internal(view_block(block, scratch), block);
    if (!advance_bottom(path, node, side)) {
      path.pop();
      continue;
    }
    if (steps_left-- == 0)
      throw_corrupt_block(block);
    const std::uint32_t leaf = descend_edge(path, node.child(path.bottom().child), side);
    if (leaf != 0)
      return leaf;
  }
  return 0;
}

void searchpath_linkto_right(SearchPath& path, std::uint32_t right_leaf) {
  const std::uint32_t next = searchpath_step(path, Side::right);
  if (next == 0)
    throw error_internal("In searchpath_linkto_right: must alter parents in the searchpath");
  if (next != right_leaf)
    throw error_fubar("Mismatched left/right pairs found");
}

}  // namespace mdb
