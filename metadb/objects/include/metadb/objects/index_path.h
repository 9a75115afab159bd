// The way from the root of an index to a leaf: the only record of a node's parents.

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "metadb/objects/index_node.h"

namespace mdb {

struct PathElement {
  std::uint32_t block;  // an internal node
  std::uint32_t child;  // the number of the child that was entered
};

// Every internal node that was passed, root first, those without keys included.
class SearchPath {
 public:
  // A deeper tree is a damaged one.
  static constexpr std::size_t max_depth = 32;

  bool empty() const { return size_ == 0; }
  std::size_t size() const { return size_; }
  // REQUIRES: level < size().
  const PathElement& operator[](std::size_t level) const { return elements_[level]; }
  // REQUIRES (both): not empty.
  const PathElement& bottom() const { return elements_[size_ - 1]; }
  void pop() { --size_; }

  // Adds a node below the others, at its child 0.
  // Throws error_need_repair "Corrupt index block at " when the tree is too deep.
  void push(std::uint32_t block);
  // Throws error_internal when there is no bottom element.
  void set_bottom_child(std::uint32_t child);

 private:
  std::array<PathElement, max_depth> elements_{};
  std::size_t size_ = 0;
};

// Moves the path to the next leaf at `side`, whatever lies between, and returns that leaf's block, which
// the caller has to check; 0, and an empty path, when there is none.
// Throws error_need_repair for damaged nodes and for trees that have no end.
std::uint32_t searchpath_step(SearchPath& path, Side side);

// Moves the path along with a step from its leaf to that leaf's right neighbour, `right_leaf`.
// Throws error_internal when the tree ends here, error_fubar when it leads to another leaf.
void searchpath_linkto_right(SearchPath& path, std::uint32_t right_leaf);

}  // namespace mdb
