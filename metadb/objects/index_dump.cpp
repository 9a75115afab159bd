#include <algorithm>
#include <vector>

#include "metadb/objects/index_search.h"

namespace mdb {

namespace {

// What a damaged count may be read as at most.
std::uint32_t printable_keys(const NodeView& node) {
  return std::min(node.nkeys(), node.capacity());
}

std::string dump_leaf(const LeafView& leaf) {
  std::string dump = text::concat("Leaf node: (left: ", leaf.neighbor(Side::left),
                                  ")(right: ", leaf.neighbor(Side::right), ")(nkeys: ", leaf.nkeys(), ")");
  for (std::uint32_t i = 0; i < printable_keys(leaf); ++i) {
    dump += text::concat("(key ", i, ": ", leaf.key(i), "->", leaf.data(i), ")");
  }
  return dump;
}

std::string dump_internal(const InternalView& node) {
  std::string dump = text::concat("Index node: (nkeys: ", node.nkeys(), ")(ptr0: ", node.child(0), ")");
  for (std::uint32_t i = 0; i < printable_keys(node); ++i) {
    dump += text::concat("(key ", i, ": ", node.key(i), " rptr=", node.child(i + 1), ")");
  }
  return dump;
}

void append_children(std::vector<std::uint32_t>& level, const InternalView& node) {
  if (!node.has_magic() || node.is_empty())
    return;
  for (std::uint32_t i = 0; i <= printable_keys(node); ++i)
    level.push_back(node.child(i));
}

}  // namespace

std::string index_dump_node(std::span<const std::byte> block) {
  if (LeafView(block).has_magic())
    return dump_leaf(LeafView(block));
  if (InternalView(block).has_magic())
    return dump_internal(InternalView(block));
  return "<!!not an index block!!>";
}

std::string index_dump(std::uint32_t root) {
  std::string dump;
  BlockBuffer scratch;
  std::vector<std::uint32_t> level = {root};
  std::uint64_t visits_left = store_block_count();
  for (std::uint32_t number = 0; !level.empty() && number <= SearchPath::max_depth; ++number) {
    std::vector<std::uint32_t> next_level;
    for (const std::uint32_t block : level) {
      if (visits_left-- == 0)
        return dump;
      dump += text::concat("Level ", number, ": index=", block, " ");
      // Block 0 is never a node, so it stands for what lies outside the store.
      const std::span<const std::byte> bytes = view_block(block < store_block_count() ? block : 0, scratch);
      dump += index_dump_node(bytes) + "\n";
      append_children(next_level, InternalView(bytes));
    }
    level = std::move(next_level);
  }
  return dump;
}

}  // namespace mdb
