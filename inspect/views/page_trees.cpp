#include <algorithm>
#include <span>

#include "views/node_tree.h"
#include "views/page_parts.h"

namespace inspect {
namespace {

// A row of a tree has no more boxes than this; neighbours are drawn as one.
constexpr std::size_t most_boxes = 128;

constexpr std::size_t most_nodes = 1'500;
constexpr std::uint64_t most_siblings = 40;
constexpr std::uint32_t deepest_shown = 24;
constexpr std::size_t longest_name = 80;  // bytes

// One node of an index, or several that stand side by side.
struct Box {
  std::uint64_t first_leaf;  // the leaves below it, counted from the left
  std::uint64_t end_leaf;
  std::uint64_t node_count;
  std::uint64_t key_count;
  std::uint64_t capacity;
  std::uint32_t block;  // of the first one
  NodeKey first_key;
  NodeKey last_key;
};

using Row = std::vector<Box>;

// A row for each depth. A node without leaves below it is as wide as a leaf.
std::vector<Row> rows_of(const IndexFacts& tree) {
  std::vector<Row> rows;
  std::uint64_t leaves = 0;
  for (const IndexNodeFacts& node : tree.nodes) {
    if (node.depth >= rows.size())
      rows.resize(node.depth + 1);
    rows[node.depth].push_back(
        {leaves, leaves + 1, 1, node.key_count, node.capacity, node.block, node.first_key, node.last_key});
    if (!node.is_leaf)
      continue;
    leaves += 1;
    for (std::size_t above = 0; above < node.depth; ++above) {
      if (!rows[above].empty())
        rows[above].back().end_leaf = leaves;
    }
  }
  return rows;
}

Row merged(const Row& row) {
  const std::size_t group = (row.size() + most_boxes - 1) / most_boxes;
  Row boxes;
  for (std::size_t i = 0; i < row.size(); ++i) {
    if (i % group == 0) {
      boxes.push_back(row[i]);
      continue;
    }
    Box& box = boxes.back();
    if (box.key_count == 0)
      box.first_key = row[i].first_key;
    if (row[i].key_count != 0)
      box.last_key = row[i].last_key;
    box.end_leaf = row[i].end_leaf;
    box.node_count += row[i].node_count;
    box.key_count += row[i].key_count;
    box.capacity += row[i].capacity;
  }
  return boxes;
}

void write_box(JsonWriter& json, const Box& box) {
  json.array([&] {
    for (const std::uint64_t number : {box.first_leaf, box.end_leaf, box.node_count, box.key_count,
                                       box.capacity, std::uint64_t{box.block}})
      json.value(number);
    json.value(box.first_key);
    json.value(box.last_key);
  });
}

// Cut between two characters.
std::string_view shortened(std::string_view name) {
  std::size_t length = std::min(name.size(), longest_name);
  while (length > 0 && length < name.size() && (static_cast<unsigned char>(name[length]) & 0xC0) == 0x80)
    length -= 1;
  return name.substr(0, length);
}

// Which nodes of the tree are shown: level by level from the top until there are enough.
std::vector<bool> shown_nodes(const std::vector<TreeNode>& tree) {
  std::vector<bool> shown(tree.size());
  std::vector<std::uint64_t> shown_children(tree.size());
  std::uint64_t shown_roots = 0;
  std::size_t count = 0;
  for (std::uint32_t depth = 0; depth <= deepest_shown; ++depth) {
    for (std::size_t i = 0; i < tree.size() && count < most_nodes; ++i) {
      const std::size_t parent = tree[i].parent;
      const bool is_root = parent == TreeNode::no_parent;
      if (tree[i].depth != depth || (!is_root && !shown[parent]))
        continue;
      std::uint64_t& siblings = is_root ? shown_roots : shown_children[parent];
      if (siblings == most_siblings)
        continue;
      siblings += 1;
      shown[i] = true;
      count += 1;
    }
  }
  return shown;
}

}  // namespace

void write_trees(JsonWriter& json, const MdbFacts& facts) {
  const std::size_t count = std::min(facts.indexes.size(), honoured_index_count);
  json.array_of(std::span(facts.indexes).first(count), [&](const IndexFacts& tree) {
    json.array_of(rows_of(tree), [&](const Row& row) {
      json.array_of(merged(row), [&](const Box& box) { write_box(json, box); });
    });
  });
}

void write_halves(JsonWriter& json, const JournalFacts& facts) {
  struct Segment {
    TransactionFate fate;
    std::uint64_t offset;
    std::uint64_t end;
    std::uint64_t transactions;
    std::uint64_t updates;
  };
  json.array_of(facts.halves, [&](const HalfFacts& half) {
    // Transactions that meet the same fate are drawn as one when there are many.
    const std::size_t group = (half.transactions.size() + most_boxes - 1) / most_boxes;
    std::vector<Segment> segments;
    std::size_t in_last = 0;
    for (const TransactionFacts& transaction : half.transactions) {
      if (segments.empty() || in_last == group || segments.back().fate != transaction.fate) {
        segments.push_back({transaction.fate, transaction.offset, transaction.end, 0, 0});
        in_last = 0;
      }
      segments.back().end = transaction.end;
      segments.back().transactions += 1;
      segments.back().updates += transaction.updates.size();
      in_last += 1;
    }
    json.object([&] {
      json.member("end", half.end ? std::optional(name_of(*half.end)) : std::nullopt)
          .member("end_offset", half.end_offset);
      json.key("segments").array_of(segments, [&](const Segment& segment) {
        json.array([&] {
          json.value(name_of(segment.fate));
          for (const std::uint64_t number :
               {segment.offset, segment.end, segment.transactions, segment.updates})
            json.value(number);
        });
      });
    });
  });
}

void write_node_outline(JsonWriter& json, const MdbFacts& facts) {
  const std::vector<TreeNode> tree = node_tree(facts.nodes);
  const std::vector<bool> shown = shown_nodes(tree);
  json.object([&] {
    json.member("node_count", tree.size());
    // Depth, ID, type, name, number of children.
    json.key("shown").array([&] {
      for (std::size_t i = 0; i < tree.size(); ++i) {
        if (!shown[i])
          continue;
        const NodeFacts& node = *tree[i].node;
        json.array([&] {
          json.value(tree[i].depth);
          json.value(std::string_view(node.id ? text_of(*node.id) : "no ID"));
          json.value(node_type_text(node.type));
          json.value(shortened(node_name(node)));
          json.value(tree[i].child_count);
        });
      }
    });
  });
}

}  // namespace inspect
