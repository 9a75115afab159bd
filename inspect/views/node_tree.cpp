#include "views/node_tree.h"

#include <algorithm>

namespace inspect {
namespace {

class TreeOrder {
 public:
  explicit TreeOrder(const std::vector<NodeFacts>& nodes) : is_placed_(nodes.size()), nodes_(nodes) {
    for (const NodeFacts& node : nodes)
      by_id_.push_back(&node);
    std::ranges::stable_sort(by_id_, {}, &NodeFacts::id);
    by_parent_ = by_id_;
    std::ranges::stable_sort(by_parent_, {}, &NodeFacts::parent);
  }

  std::vector<TreeNode> run() {
    for (const NodeFacts* node : by_id_) {
      if (!has_parent(*node))
        place_with_descendants(node);
    }
    for (const NodeFacts* node : by_id_)
      place_with_descendants(node);
    return std::move(tree_);
  }

 private:
  using Nodes = std::vector<const NodeFacts*>;
  struct Waiting {
    const NodeFacts* node;
    std::size_t parent;
    std::uint32_t depth;
  };

  bool has_parent(const NodeFacts& node) const {
    return node.parent && node.parent != node.id &&
           std::ranges::binary_search(by_id_, node.parent, {}, &NodeFacts::id);
  }

  std::size_t index_of(const NodeFacts* node) const { return static_cast<std::size_t>(node - nodes_.data()); }

  void place_with_descendants(const NodeFacts* top) {
    std::vector<Waiting> waiting = {{top, TreeNode::no_parent, 0}};
    while (!waiting.empty()) {
      const auto [node, parent, depth] = waiting.back();
      waiting.pop_back();
      if (is_placed_[index_of(node)])
        continue;
      is_placed_[index_of(node)] = true;
      if (parent != TreeNode::no_parent)
        tree_[parent].child_count += 1;
      tree_.push_back({node, parent, depth, 0});
      if (!node->id)
        continue;
      const auto first = std::ranges::lower_bound(by_parent_, node->id, {}, &NodeFacts::parent);
      auto child = std::ranges::upper_bound(by_parent_, node->id, {}, &NodeFacts::parent);
      const std::size_t place = tree_.size() - 1;
      while (child != first)
        waiting.push_back({*--child, place, depth + 1});
    }
  }

  Nodes by_id_;
  Nodes by_parent_;
  std::vector<bool> is_placed_;
  const std::vector<NodeFacts>& nodes_;
  std::vector<TreeNode> tree_;
};

}  // namespace

std::vector<TreeNode> node_tree(const std::vector<NodeFacts>& nodes) {
  return TreeOrder(nodes).run();
}

}  // namespace inspect
