#include <algorithm>
#include <array>

#include "views/block_cells.h"
#include "views/page_parts.h"

namespace inspect {
namespace {

// Chain sets from this one on are counted together.
constexpr std::uint32_t last_shown_set = 7;
constexpr std::size_t fill_steps = 20;

// A range of blocks that are used alike.
struct Range {
  std::uint64_t first;
  std::uint64_t count;
  std::size_t use;
};

using FillCounts = std::array<std::uint64_t, fill_steps>;

// A block that is full counts for the last step.
void count_fill(FillCounts& counts, std::uint64_t used, std::uint64_t capacity) {
  if (capacity != 0)
    counts[static_cast<std::size_t>(std::min(used * fill_steps / capacity, fill_steps - 1))] += 1;
}

}  // namespace

void write_tsdb_blocks(JsonWriter& json, const TsdbFacts& facts) {
  const std::uint32_t shown_sets = std::min(facts.set_count, last_shown_set + 1);
  std::vector<std::string> uses = {"header"};
  std::vector<Range> ranges = {{0, 1, 0}};
  for (std::size_t kind = 0; kind < chain_kind_count; ++kind) {
    for (std::uint32_t set = 0; set < shown_sets; ++set)
      uses.push_back(text::concat(chain_kind_name(kind), " ", set));
    for (std::uint32_t set = 0; set < facts.set_count; ++set) {
      for (const BlockRun& run : facts.chains[kind][set].runs)
        ranges.push_back(
            {run.first_block, run.block_count, 1 + kind * shown_sets + std::min(set, last_shown_set)});
    }
  }
  for (const LevelFacts& level : facts.levels)
    ranges.push_back({level.first_block, level.block_count, uses.size()});
  uses.insert(uses.end(), {"levels", "free"});
  std::ranges::stable_sort(ranges, {}, &Range::first);
  BlockCells cells(facts.file_bytes / facts.block_size, std::move(uses));
  for (const Range& range : ranges)
    cells.add(range.first, range.count, range.use);
  cells.write(json);
}

void write_chain_table(JsonWriter& json, const TsdbFacts& facts) {
  json.array([&] {
    for (std::size_t kind = 0; kind < chain_kind_count; ++kind) {
      for (std::uint32_t set = 0; set < std::min(facts.set_count, last_shown_set + 1); ++set) {
        const ChainFacts& chain = facts.chains[kind][set];
        json.object([&] {
          json.member("kind", chain_kind_name(kind))
              .member("set", set)
              .member("state", facts.newest_set[kind] == set ? "committed last" : name_of(chain.state))
              .member("timestamp", chain.timestamp)
              .member("block_count", chain.block_count);
        });
      }
    }
  });
}

void write_mdb_blocks(JsonWriter& json, const MdbFacts& facts) {
  enum FirstUses : std::size_t { header, journal, map, first_class };
  std::vector<std::string> uses = {"header", "journal", "map"};
  for (std::size_t class_byte = 0; class_byte < block_class_count; ++class_byte) {
    const std::string_view key = block_class_key(class_byte);
    uses.emplace_back(key.empty() ? "unknown" : key);
  }
  const std::size_t unknown = uses.size();
  uses.emplace_back("unknown");
  BlockCells cells(facts.block_count, std::move(uses));
  const std::uint64_t header_end =
      facts.journal_first_block != 0 ? facts.journal_first_block : facts.map_first_block;
  cells.add(0, header_end, header);
  cells.add(header_end, facts.map_first_block - header_end, journal);
  cells.add(facts.map_first_block, facts.data_first_block - facts.map_first_block, map);
  for (std::uint64_t block = facts.data_first_block; block < facts.classes.size(); ++block) {
    const std::uint8_t class_byte = facts.classes[static_cast<std::size_t>(block)];
    cells.add(block, 1, block_class_key(class_byte).empty() ? unknown : first_class + class_byte);
  }
  cells.write(json);
}

void write_fill(JsonWriter& json, const MdbFacts& facts) {
  FillCounts data{};
  FillCounts nodes{};
  FillCounts leaves{};
  for (const DataBlockFacts& block : facts.data_blocks)
    count_fill(data, facts.block_size - block.free_bytes, facts.block_size);
  for (const IndexFacts& tree : facts.indexes) {
    for (const IndexNodeFacts& node : tree.nodes)
      count_fill(node.is_leaf ? leaves : nodes, node.key_count, node.capacity);
  }
  json.object([&] {
    const auto write = [&](std::string_view name, const FillCounts& counts) {
      json.key(name).array_of(counts, [&](std::uint64_t count) { json.value(count); });
    };
    write("data", data);
    write("leaves", leaves);
    write("nodes", nodes);
  });
}

}  // namespace inspect
