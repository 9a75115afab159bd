#include <algorithm>
#include <limits>
#include <span>

#include "nodemodel/property_names.h"
#include "record_check.h"
#include "views/json_parts.h"
#include "views/node_tree.h"
#include "views/replay.h"

namespace inspect {
namespace {

constexpr unsigned spread_depth = 3;

void write_chain(JsonWriter& json, const TsdbFacts& facts, std::size_t kind, std::uint32_t set) {
  const ChainFacts& chain = facts.chains[kind][set];
  json.object([&] {
    json.member("kind", chain_kind_name(kind))
        .member("set", set)
        .member("state", name_of(chain.state))
        .member("committed_last", facts.newest_set[kind] == set)
        .member("timestamp", chain.timestamp)
        .member("first_block", chain.first_block)
        .member("block_count", chain.block_count);
    json.key("runs").array_of(chain.runs, [&](const BlockRun& run) {
      json.object(
          [&] { json.member("first_block", run.first_block).member("block_count", run.block_count); });
    });
  });
}

void write_level(JsonWriter& json, const LevelFacts& level) {
  json.object([&] {
    json.member("level", level.number)
        .member("first_block", level.first_block)
        .member("block_count", level.block_count)
        .member("next_level", level.next_level)
        .member("parameter", level.parameter)
        .member("head", level.head)
        .member("tail", level.tail);
  });
}

void write_series(JsonWriter& json, const SeriesFacts& series) {
  json.object([&] {
    json.member("check_id", series.check_id).member("datatype", series.datatype);
    json.key("levels").array_of(series.levels, [&](std::uint32_t level) { json.value(level); });
  });
}

void write_index_node(JsonWriter& json, const IndexFacts& tree, const IndexNodeFacts& node,
                      std::size_t& entries_shown) {
  const bool has_keys = node.key_count > 0;
  json.object([&] {
    json.member("block", node.block)
        .member("depth", node.depth)
        .member("leaf", node.is_leaf)
        .member("key_count", node.key_count)
        .member("capacity", node.capacity)
        .member("first_key", has_keys ? std::optional(node.first_key) : std::nullopt)
        .member("last_key", has_keys ? std::optional(node.last_key) : std::nullopt);
    if (!node.is_leaf)
      return;
    const auto entries = std::span(tree.entries).subspan(entries_shown, node.key_count);
    entries_shown += node.key_count;
    json.key("entries").array_of(entries, [&](const IndexEntryFacts& entry) {
      json.object([&] {
        json.member("key", entry.key)
            .member("block", entry.object.block)
            .member("offset", entry.object.offset);
      });
    });
  });
}

void write_property(JsonWriter& json, const PropertyFacts& property) {
  json.object([&] {
    json.member("id", property.id)
        .text_or_null("name", mdb::property_name(property.id))
        .member("type_code", property.type)
        .text_or_null("type", property_type_name(property.type))
        .member("marked", property.is_marked);
    json.key("value");
    if (const auto* const bytes = std::get_if<std::vector<std::byte>>(&property.value)) {
      json.object([&] { json.member("hex", std::string_view(hex(*bytes))); });
    } else {
      std::visit(
          [&](const auto& value) {
            if constexpr (requires { json.value(value); })
              json.value(value);
          },
          property.value);
    }
  });
}

void write_children(JsonWriter& json, const std::vector<TreeNode>& tree, NodeKey parent) {
  json.array([&] {
    for (const TreeNode& place : tree) {
      if (place.node->parent != parent)
        continue;
      json.object([&] {
        json.member("id", place.node->id)
            .text_or_null("type_name", node_type_text(place.node->type))
            .text_or_null("name", node_name(*place.node));
      });
    }
  });
}

// The children only of a node that is shown alone.
void write_node(JsonWriter& json, const TreeNode& place, const std::vector<TreeNode>* tree) {
  const NodeFacts& node = *place.node;
  json.object([&] {
    json.member("id", node.id)
        .member("parent", node.parent)
        .member("type", node.type)
        .text_or_null("type_name", node_type_text(node.type))
        .text_or_null("name", node_name(node))
        .member("depth", place.depth)
        .member("child_count", place.child_count)
        .member("block", node.place.block)
        .member("offset", node.place.offset)
        .member("length_bytes", node.length_bytes);
    json.key("properties").array_of(node.properties, [&](const PropertyFacts& property) {
      write_property(json, property);
    });
    if (tree != nullptr && node.id)
      write_children(json.key("children"), *tree, *node.id);
  });
}

void write_transaction(JsonWriter& json, const MdbFacts& mdb, const TransactionFacts& transaction) {
  json.object([&] {
    json.member("offset", transaction.offset)
        .member("end", transaction.end)
        .member("serial", transaction.serial)
        .member("fate", name_of(transaction.fate));
    json.key("updates").array_of(transaction.updates, [&](const UpdateFacts& update) {
      json.object([&] {
        json.member("offset", update.offset)
            .member("target", update.target)
            .member("target_block", update.target / mdb.block_size)
            .member("target_offset", update.target % mdb.block_size)
            .member("length", update.length);
      });
    });
  });
}

}  // namespace

void write_chains(JsonWriter& json, const TsdbFacts& facts) {
  json.object([&] {
    json.key("chains").array([&] {
      for (std::size_t kind = 0; kind < chain_kind_count; ++kind) {
        for (std::uint32_t set = 0; set < facts.chains[kind].size(); ++set)
          write_chain(json, facts, kind, set);
      }
    });
    json.key("levels").array_of(facts.levels, [&](const LevelFacts& level) { write_level(json, level); });
    json.key("series").array_of(facts.series, [&](const SeriesFacts& series) { write_series(json, series); });
  });
}

void write_indexes(JsonWriter& json, const MdbFacts& facts) {
  json.array([&] {
    for (std::size_t index = 0; index < std::min(facts.indexes.size(), honoured_index_count); ++index) {
      const IndexFacts& tree = facts.indexes[index];
      std::size_t entries_shown = 0;
      json.object([&] {
        json.member("index", index).member("made", tree.is_made).member("whole", tree.is_whole);
        json.key("nodes").array_of(tree.nodes, [&](const IndexNodeFacts& node) {
          write_index_node(json, tree, node, entries_shown);
        });
      });
    }
  });
}

void write_nodes(JsonWriter& json, const MdbFacts& facts, const std::optional<NodeKey>& only) {
  const std::vector<TreeNode> tree = node_tree(facts.nodes);
  json.array_of(tree, [&](const TreeNode& place) {
    if (!only || place.node->id == only)
      write_node(json, place, only ? &tree : nullptr);
  });
}

void write_journal(JsonWriter& json, const JournalFacts& facts, const MdbFacts& mdb) {
  const ReplaySize replay = replay_size(facts, mdb);
  json.object([&] {
    json.member("internal", facts.is_internal)
        .text_or_null("path", facts.path)
        .member("length_bytes", facts.length_bytes)
        .member("newest_half", facts.newest_half);
    json.key("halves").array_of(facts.halves, [&](const HalfFacts& half) {
      json.object([&] {
        json.member("readable", half.pointer_is_valid)
            .member("serial", half.serial)
            .member("first_entry", half.first_entry)
            .member("end_offset", half.end_offset)
            .member("end", half.end ? std::optional(name_of(*half.end)) : std::nullopt);
        json.key("transactions").array_of(half.transactions, [&](const TransactionFacts& transaction) {
          write_transaction(json, mdb, transaction);
        });
      });
    });
    json.member("replayed_transactions", facts.replayed_transactions)
        .member("replayed_updates", facts.replayed_updates)
        .member("replayed_bytes", replay.bytes)
        .member("replayed_blocks", replay.blocks);
  });
}

void print_json(std::ostream& out, const std::string& directory, const Inspection& inspection,
                const Views& views) {
  JsonWriter json(out, spread_depth);
  json.object([&] {
    write_verdict(json, directory, inspection);
    if (views.is_summary()) {
      json.key("summary");
      write_summary(json, inspection);
    }
    if (views.check) {
      json.key("findings");
      write_findings(json, inspection.report, std::numeric_limits<std::size_t>::max());
      json.member("findings_omitted", inspection.report.omitted_count());
    }
    if (views.chains && inspection.tsdb)
      write_chains(json.key("chains"), *inspection.tsdb);
    if (!inspection.mdb)
      return;
    if (views.indexes)
      write_indexes(json.key("indexes"), *inspection.mdb);
    if (views.nodes || views.node)
      write_nodes(json.key("nodes"), *inspection.mdb, views.node);
    if (views.journal && inspection.journal)
      write_journal(json.key("journal"), *inspection.journal, *inspection.mdb);
  });
  out << '\n';
}

}  // namespace inspect
