#include <algorithm>

#include "views/names.h"
#include "views/text.h"

namespace inspect {
namespace {

constexpr std::size_t key_width = 23;

void print_entries(std::ostream& out, const std::string& indent, const IndexFacts& tree, std::size_t first,
                   std::size_t count) {
  for (std::size_t i = first; i < first + count; ++i) {
    const auto& [key, object] = tree.entries[i];
    out << indent << "  " << left(text_of(key), key_width) << "block " << object.block << ", offset "
        << object.offset << '\n';
  }
}

void print_tree(std::ostream& out, const IndexFacts& tree) {
  std::size_t entries_shown = 0;
  for (const IndexNodeFacts& node : tree.nodes) {
    const std::string indent(2 + 2 * std::size_t{node.depth}, ' ');
    out << indent << (node.is_leaf ? "leaf" : "node") << ", block " << node.block << ", " << node.key_count
        << " of " << node.capacity << (node.is_leaf ? " entries" : " keys");
    if (node.key_count > 0)
      out << ", " << text_of(node.first_key) << " to " << text_of(node.last_key);
    out << '\n';
    if (!node.is_leaf)
      continue;
    print_entries(out, indent, tree, entries_shown, node.key_count);
    entries_shown += node.key_count;
  }
}

}  // namespace

void print_indexes(std::ostream& out, const MdbFacts& facts) {
  for (std::size_t index = 0; index < std::min(facts.indexes.size(), honoured_index_count); ++index) {
    const IndexFacts& tree = facts.indexes[index];
    out << "Index " << index << ", root block " << tree.root_block << ": ";
    if (tree.is_made) {
      out << counted(tree.node_count, "block") << ", of them " << tree.leaf_count
          << (tree.leaf_count == 1 ? " leaf, " : " leaves, ") << tree.entry_count
          << (tree.entry_count == 1 ? " entry" : " entries")
          << (tree.is_whole ? "\n" : ", as far as it can be followed\n");
    } else {
      out << "not made yet\n";
    }
    print_tree(out, tree);
  }
}

}  // namespace inspect
