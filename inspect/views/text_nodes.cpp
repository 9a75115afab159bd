#include <algorithm>

#include "nodemodel/property_names.h"
#include "record_check.h"
#include "views/names.h"
#include "views/node_tree.h"
#include "views/text.h"

namespace inspect {
namespace {

// Nodes further down are not moved to the right any more: their lines would be nothing but spaces.
constexpr std::uint32_t deepest_indent = 30;
constexpr std::size_t name_width = 16;

std::string quoted(std::string_view text) {
  return "\"" + printable(text) + "\"";
}

std::string property_text(const PropertyFacts& property) {
  struct Show {
    std::string operator()(const std::vector<std::byte>& bytes) const { return "bytes " + hex(bytes); }
    std::string operator()(std::uint32_t number) const { return text::decimal(std::uint64_t{number}); }
    std::string operator()(bool flag) const { return flag ? "true" : "false"; }
    std::string operator()(const std::string& text) const { return quoted(text); }
    std::string operator()(NodeKey key) const { return text_of(key); }
  };
  std::string shown = std::visit(Show{}, property.value);
  if (property.type == mdb::property_type::enumeration) {
    if (const auto* const number = std::get_if<std::uint32_t>(&property.value)) {
      const std::string_view name = node_type_text(*number);
      if (!name.empty())
        text::append(shown, text::concat(" (", name, ")"));
    }
  } else if (property_type_name(property.type).empty()) {
    text::append(shown, text::concat(" of type ", property.type));
  }
  return property.is_marked ? shown + ", marked" : shown;
}

std::string headline(const NodeFacts& node) {
  std::string line = node.id ? text_of(*node.id) : "(no ID)";
  if (const std::string_view type = node_type_text(node.type); !type.empty())
    text::append(line, text::concat(" ", type));
  if (const std::string_view name = node_name(node); !name.empty())
    text::append(line, " " + quoted(name));
  return line;
}

void print_record(std::ostream& out, const std::string& indent, const NodeFacts& node) {
  out << indent << headline(node) << ", block " << node.place.block << ", offset " << node.place.offset
      << ", " << node.length_bytes << " bytes\n";
  for (const PropertyFacts& property : node.properties) {
    const std::string_view known = mdb::property_name(property.id);
    const std::string name = known.empty() ? text::concat("property ", property.id) : std::string(known);
    out << indent << "    " << left(name, name_width) << "  " << property_text(property) << '\n';
  }
}

}  // namespace

void print_nodes(std::ostream& out, const MdbFacts& facts) {
  out << counted(facts.nodes.size(), "node") << ", children under their parents\n";
  for (const TreeNode& place : node_tree(facts.nodes))
    print_record(out, std::string(2 + 2 * std::size_t{std::min(place.depth, deepest_indent)}, ' '),
                 *place.node);
}

void print_node(std::ostream& out, const MdbFacts& facts, NodeKey id) {
  const auto node = std::ranges::find(facts.nodes, id, &NodeFacts::id);
  if (node == facts.nodes.end())
    return;
  print_record(out, "  ", *node);
  for (const TreeNode& place : node_tree(facts.nodes)) {
    if (place.node->parent == id)
      out << "      child " << headline(*place.node) << '\n';
  }
}

}  // namespace inspect
