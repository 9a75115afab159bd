#include "tree_check.h"

#include <optional>

#include "metadb/objects/index_format.h"
#include "words.h"

namespace inspect {

namespace {

namespace format = mdb::format;
namespace leaf = mdb::format::leaf;
namespace internal = mdb::format::internal;

constexpr unsigned deepest_level = 32;
constexpr std::uint32_t unique_index = 0;

NodeKey key_at(ByteView node, std::uint64_t offset) {
  const auto entry = node.subspan(static_cast<std::size_t>(offset), format::node_key::size);
  return {bytes::load_u32(entry, format::node_key::k0), bytes::load_u32(entry, format::node_key::k1)};
}

// The keys that a subtree may hold.
struct KeyRange {
  std::optional<NodeKey> low{};   // the least
  std::optional<NodeKey> high{};  // the end; where equal keys may span subtrees, the greatest
};

// A child that is still to be visited.
struct Visit {
  std::uint32_t block;
  ObjectPlace named_at;
  KeyRange range;
  unsigned level;

  Place place() const { return place_in_mdb(named_at.block, named_at.offset); }
};

class TreeCheck {
 public:
  TreeCheck(std::uint32_t index, const MdbImage& image, const MdbLayout& layout, const BlockClasses& classes,
            std::vector<bool>& reached, Report& report)
      : index_(index),
        image_(image),
        layout_(layout),
        classes_(classes),
        reached_(reached),
        report_(report) {}

  IndexTree run(IndexFacts& facts) {
    facts_ = {};
    facts_.root_block = layout_.roots[index_];
    visit_root();
    tree_.is_whole = tree_.is_made && !is_cut_;
    facts_.is_made = tree_.is_made;
    facts_.is_whole = tree_.is_whole;
    facts_.entry_count = tree_.entries.size();
    facts = std::move(facts_);
    return std::move(tree_);
  }

 private:
  std::string name() const { return text::concat("index ", index_); }

  void visit_root() {
    const std::uint32_t root = layout_.roots[index_];
    if (root >= classes_.size() && root < layout_.addressable_blocks())
      report_.damage(place_in_mdb(0, 0), name(), ": found its root in block ", root, ", expected one of the ",
                     classes_.size(), " blocks of the file");
    if (root < layout_.data_first_block || root >= classes_.size() || reached_[root])
      return;  // has been said, if not above then by the header's check
    // A root is marked in the transaction that writes it.
    if (classes_[root] == BlockClass::empty && magic_of(root) != internal::layout.magic) {
      report_.note(place_in_mdb(root, 0), name(), ": its root is not made yet");
      return;
    }
    tree_.is_made = true;
    reached_[root] = true;
    expect_class(root, BlockClass::index_root);
    if (!expect_root_magic(root)) {
      is_cut_ = true;
      return;
    }
    visit_internal({root, {}, {}, 0}, image_.block(root));
    visit_below();
  }

  void visit_below() {
    while (!pending_.empty()) {
      const Visit visit = pending_.back();
      pending_.pop_back();
      if (!can_enter(visit) || !visit_node(visit))
        cut();
    }
    if (last_leaf_ != 0 && !after_cut_)
      expect_link(last_leaf_, leaf::right, last_right_, 0, "right");
  }

  // Part of the tree is left out; the leaf that comes next has unknown neighbours.
  void cut() {
    is_cut_ = true;
    after_cut_ = true;
  }

  bool can_enter(const Visit& visit) {
    if (visit.block < layout_.data_first_block || visit.block >= classes_.size()) {
      report_.damage(visit.place(), name(), ", child: found block ", visit.block, ", expected ",
                     layout_.data_first_block, " to ", classes_.size() - 1);
      return false;
    }
    if (reached_[visit.block]) {
      report_.damage(visit.place(), name(), ", child: found block ", visit.block,
                     " a second time, expected one that no tree has reached yet");
      return false;
    }
    if (visit.level > deepest_level) {
      report_.damage(visit.place(), name(), ", depth: found more than ", deepest_level, " levels at block ",
                     visit.block, ", expected ", deepest_level, " at most");
      return false;
    }
    reached_[visit.block] = true;
    return true;
  }

  void expect_class(std::uint32_t block, BlockClass expected) {
    if (classes_[block] == expected)
      return;
    report_.damage(place_in_mdb(block, 0), name(), ", class of the block: found ",
                   static_cast<std::uint8_t>(classes_[block]), " (", name_of(classes_[block]), "), expected ",
                   static_cast<std::uint8_t>(expected), " (", name_of(expected), ")");
  }

  std::uint32_t magic_of(std::uint32_t block) const {
    return image_.is_hole(block) ? 0 : bytes::load_u32(image_.block(block), format::node_magic);
  }

  bool expect_root_magic(std::uint32_t root) {
    report_.expect_equal(place_in_mdb(root, format::node_magic), text::concat(name(), ", magic of the root"),
                         magic_text(magic_of(root)), magic_text(internal::layout.magic));
    return magic_of(root) == internal::layout.magic;
  }

  bool visit_node(const Visit& visit) {
    const Bytes node =
        image_.is_hole(visit.block) ? Bytes(format::node_key::size) : image_.block(visit.block);
    const std::uint32_t magic = bytes::load_u32(node, format::node_magic);
    if (magic == leaf::layout.magic) {
      expect_class(visit.block, BlockClass::index_leaf);
      return visit_leaf(visit, node);
    }
    if (magic == internal::layout.magic) {
      expect_class(visit.block, BlockClass::index_internal);
      return visit_internal(visit, node);
    }
    report_.damage(place_in_mdb(visit.block, format::node_magic), name(), ", magic: found ",
                   magic_text(magic), ", expected ", magic_text(leaf::layout.magic), " or ",
                   magic_text(internal::layout.magic));
    return false;
  }

  // The number of keys of a node; nothing when it has no room for them.
  std::optional<std::uint32_t> key_count(std::uint32_t block, const format::NodeLayout& layout,
                                         ByteView node) {
    const std::uint32_t count = bytes::load_u32(node, layout.nkeys);
    const std::uint32_t capacity = layout.capacity(node.size());
    if (count <= capacity)
      return count;
    report_.damage(place_in_mdb(block, layout.nkeys), name(), ", number of keys: found ", count,
                   ", expected ", capacity, " at most");
    return std::nullopt;
  }

  // Keys in order, and within what the separators above allow. Only in the unique index are equal keys wrong.
  void check_key(const Place& place, NodeKey key, const std::optional<NodeKey>& before,
                 const KeyRange& range) {
    const bool is_unique = index_ == unique_index;
    if (before && (is_unique ? key <= *before : key < *before)) {
      report_.damage(place, name(), ", key: found ", text_of(key), " behind ", text_of(*before),
                     ", expected ", is_unique ? "a greater one" : "no smaller one");
    }
    if (range.low && key < *range.low) {
      report_.damage(place, name(), ", key: found ", text_of(key), ", expected ", text_of(*range.low),
                     " at least, by the separator above");
    }
    if (range.high && (is_unique ? key >= *range.high : key > *range.high)) {
      report_.damage(place, name(), ", key: found ", text_of(key), ", expected ",
                     is_unique ? "one below " : "at most ", text_of(*range.high), ", by the separator above");
    }
  }

  void list_node(const Visit& visit, const format::NodeLayout& layout, ByteView node, std::uint32_t count) {
    IndexNodeFacts facts{.block = visit.block,
                         .depth = visit.level,
                         .is_leaf = layout.magic == leaf::layout.magic,
                         .key_count = count,
                         .capacity = layout.capacity(node.size())};
    if (count > 0) {
      facts.first_key = key_at(node, layout.first_entry);
      facts.last_key = key_at(node, layout.first_entry + layout.entry_size * (std::uint64_t{count} - 1));
    }
    facts_.nodes.push_back(facts);
  }

  bool visit_internal(const Visit& visit, ByteView node) {
    facts_.node_count += 1;
    const auto count = key_count(visit.block, internal::layout, node);
    if (!count)
      return false;
    list_node(visit, internal::layout, node, *count);
    std::optional<NodeKey> before;
    for (std::uint64_t i = 0; i < *count; ++i) {
      const std::uint64_t offset = internal::first_entry + internal::entry_size * i;
      check_key(place_in_mdb(visit.block, offset), key_at(node, offset), before, visit.range);
      before = key_at(node, offset);
    }
    if (*count == 0 && !note_without_keys(visit, node))
      return true;
    push_children(visit, node, *count);
    return true;
  }

  // Whether the node has its one child.
  bool note_without_keys(const Visit& visit, ByteView node) {
    const bool has_child = bytes::load_u32(node, internal::first_child) != 0;
    const bool is_root = visit.level == 0;
    if (!has_child) {
      report_.note(place_in_mdb(visit.block, 0), name(),
                   is_root ? ": it is empty" : ": a node without keys and child");
    } else if (!is_root) {
      report_.note(place_in_mdb(visit.block, 0), name(), ": a node without keys");
    }
    return has_child;
  }

  // The last child first, so that the first one is visited next.
  void push_children(const Visit& visit, ByteView node, std::uint32_t key_count) {
    for (std::uint64_t child = std::uint64_t{key_count} + 1; child-- > 0;) {
      const std::uint64_t offset = internal::first_child + internal::entry_size * child;
      KeyRange range = visit.range;
      if (child > 0)
        range.low = key_at(node, internal::first_entry + internal::entry_size * (child - 1));
      if (child < key_count)
        range.high = key_at(node, internal::first_entry + internal::entry_size * child);
      pending_.push_back({bytes::load_u32(node, static_cast<std::size_t>(offset)),
                          {visit.block, static_cast<std::uint32_t>(offset)},
                          range,
                          visit.level + 1});
    }
  }

  void expect_link(std::uint32_t block, std::uint64_t offset, std::uint32_t found, std::uint32_t expected,
                   std::string_view side) {
    report_.expect_equal(place_in_mdb(block, offset), text::concat(name(), ", leaf to the ", side), found,
                         expected);
  }

  void check_links(std::uint32_t block, ByteView node) {
    if (!after_cut_) {
      expect_link(block, leaf::left, bytes::load_u32(node, leaf::left), last_leaf_, "left");
      if (last_leaf_ != 0)
        expect_link(last_leaf_, leaf::right, last_right_, block, "right");
    }
    after_cut_ = false;
    last_leaf_ = block;
    last_right_ = bytes::load_u32(node, leaf::right);
  }

  bool visit_leaf(const Visit& visit, ByteView node) {
    facts_.node_count += 1;
    facts_.leaf_count += 1;
    check_links(visit.block, node);
    const auto count = key_count(visit.block, leaf::layout, node);
    if (!count) {
      is_cut_ = true;
      return true;  // its links are good
    }
    list_node(visit, leaf::layout, node, *count);
    std::optional<NodeKey> before;
    for (std::uint64_t i = 0; i < *count; ++i) {
      const std::uint64_t offset = leaf::first_entry + leaf::entry_size * i;
      const NodeKey key = key_at(node, offset);
      check_key(place_in_mdb(visit.block, offset), key, before ? before : last_key_, visit.range);
      before = key;
      const auto entry = node.subspan(static_cast<std::size_t>(offset), leaf::entry_size);
      tree_.entries.push_back(
          {key,
           {bytes::load_u32(entry, leaf::data_block), bytes::load_u32(entry, leaf::data_offset)},
           {visit.block, static_cast<std::uint32_t>(offset)}});
    }
    if (before)
      last_key_ = before;
    return true;
  }

  std::uint32_t index_;
  const MdbImage& image_;
  const MdbLayout& layout_;
  const BlockClasses& classes_;
  std::vector<bool>& reached_;
  Report& report_;
  IndexTree tree_;
  IndexFacts facts_;
  std::vector<Visit> pending_;
  std::optional<NodeKey> last_key_;
  std::uint32_t last_leaf_ = 0;   // 0: none yet
  std::uint32_t last_right_ = 0;  // its right neighbour
  bool is_cut_ = false;
  bool after_cut_ = false;
};

bool is_index_class(BlockClass block_class) {
  return block_class == BlockClass::index_root || block_class == BlockClass::index_internal ||
         block_class == BlockClass::index_leaf;
}

}  // namespace

std::vector<IndexTree> check_trees(const MdbImage& image, const MdbLayout& layout,
                                   const BlockClasses& classes, const Wanted& wanted, MdbFacts& facts,
                                   Report& report) {
  std::vector<bool> reached(static_cast<std::size_t>(classes.size()));
  std::vector<IndexTree> trees;
  bool all_whole = true;
  for (std::uint32_t index = 0; index < layout.roots.size(); ++index) {
    IndexFacts& index_facts = facts.indexes.emplace_back();
    trees.push_back(TreeCheck(index, image, layout, classes, reached, report).run(index_facts));
    if (wanted.entries) {
      for (const IndexEntry& entry : trees.back().entries)
        index_facts.entries.push_back({entry.key, entry.object});
    }
    all_whole = all_whole && (!index_facts.is_made || index_facts.is_whole);
  }
  for (std::uint64_t block = layout.data_first_block; block < classes.size(); ++block) {
    if (!is_index_class(classes[block]) || reached[static_cast<std::size_t>(block)])
      continue;
    report.damage(place_in_mdb(block, 0), "block of class ", static_cast<std::uint8_t>(classes[block]), " (",
                  name_of(classes[block]), "): found in no index, expected in one",
                  all_whole ? "" : "; an index could not be followed everywhere");
  }
  return trees;
}

}  // namespace inspect
