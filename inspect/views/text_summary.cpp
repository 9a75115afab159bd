#include <array>
#include <chrono>

#include "views/names.h"
#include "views/text.h"

namespace inspect {
namespace {

// By class byte.
constexpr std::array<std::string_view, block_class_count> class_names = {
    "empty", "used", "full", "", "roots", "nodes", "leaves", "large objects"};

// "2026-11-23 06:00:00 UTC".
std::string calendar_text(std::uint32_t seconds_since_1970) {
  const std::chrono::sys_seconds moment{std::chrono::seconds(seconds_since_1970)};
  const auto day = std::chrono::floor<std::chrono::days>(moment);
  const std::chrono::year_month_day date(day);
  const std::chrono::hh_mm_ss time(moment - day);
  const auto two = [](auto number) { return text::two_digits(static_cast<std::uint32_t>(number)); };
  return text::concat(static_cast<int>(date.year()), "-", two(static_cast<unsigned>(date.month())), "-",
                      two(static_cast<unsigned>(date.day())), " ", two(time.hours().count()), ":",
                      two(time.minutes().count()), ":", two(time.seconds().count()), " UTC");
}

// The mark says what a set is for: "*" committed last, "+" timestamp raised ahead, "!" damaged.
std::string_view mark_of(const TsdbFacts& facts, std::size_t kind, std::uint32_t set) {
  if (facts.newest_set[kind] == set)
    return "*";
  switch (facts.chains[kind][set].state) {
    case ChainState::raised_ahead:
      return "+";
    case ChainState::damaged:
      return "!";
    default:
      return "";
  }
}

void summarise_chains(std::ostream& out, const TsdbFacts& facts) {
  out << label("chain sets") << facts.set_count
      << "; timestamp (blocks) of each, * committed last, + raised ahead, ! damaged\n";
  for (std::size_t kind = 0; kind < chain_kind_count; ++kind) {
    out << label(text::concat("  ", chain_kind_name(kind)));
    for (std::uint32_t set = 0; set < facts.chains[kind].size(); ++set) {
      const ChainFacts& chain = facts.chains[kind][set];
      out << (set == 0 ? "" : "   ") << chain.timestamp << mark_of(facts, kind, set) << " ("
          << chain.block_count << ")";
    }
    out << '\n';
  }
}

void summarise_tsdb(std::ostream& out, const TsdbFacts& facts) {
  out << "main.tsdb\n"
      << label("size") << facts.file_bytes << " bytes, version " << facts.version << ", blocks of "
      << facts.block_size << " bytes, created " << calendar_text(facts.creation_time) << '\n';
  if (facts.set_count == 0)
    return;
  summarise_chains(out, facts);
  out << label("content") << facts.series_count << " time series"
      << ", " << counted(facts.level_count, "level") << " in " << counted(facts.level_blocks, "block")
      << '\n';
}

void summarise_classes(std::ostream& out, const MdbFacts& facts) {
  out << label("blocks") << facts.block_count << "; map " << facts.map_first_block << " to "
      << facts.data_first_block - 1 << "; then";
  for (std::size_t i = 0; i < class_names.size(); ++i) {
    if (!class_names[i].empty() && (facts.class_counts[i] != 0 || i != class_names.size() - 1))
      out << (i == 0 ? " " : ", ") << facts.class_counts[i] << ' ' << class_names[i];
  }
  if (facts.unknown_class_count != 0)
    out << ", " << facts.unknown_class_count << " of no known class";
  out << '\n';
}

void summarise_indexes(std::ostream& out, const MdbFacts& facts) {
  for (std::size_t index = 0; index < facts.indexes.size() && index < honoured_index_count; ++index) {
    const IndexFacts& tree = facts.indexes[index];
    out << label(text::concat("index ", index)) << "root " << tree.root_block << ", ";
    if (tree.is_made) {
      out << (tree.entry_count == 1 ? "1 entry" : text::concat(tree.entry_count, " entries")) << " in "
          << (tree.leaf_count == 1 ? "1 leaf" : text::concat(tree.leaf_count, " leaves"))
          << (tree.is_whole ? "\n" : ", as far as it can be followed\n");
    } else {
      out << "not made yet\n";
    }
  }
}

void summarise_records(std::ostream& out, const MdbFacts& facts) {
  std::string line = label("records");
  bool is_first = true;
  const auto add = [&](std::string_view name, std::uint64_t count) {
    if (count == 0)
      return;
    text::append(line, text::concat(is_first ? "" : ", ", name, " ", count));
    is_first = false;
  };
  for (std::size_t type = 0; type < facts.records_by_type.size(); ++type)
    add(node_type_text(static_cast<std::uint32_t>(type)), facts.records_by_type[type]);
  add("of no known type", facts.records_without_type);
  add("objects that no index names", facts.unnamed_object_count);
  out << line << (is_first ? "none" : "") << '\n';
}

void summarise_mdb(std::ostream& out, const MdbFacts& facts) {
  out << "main.odb\n"
      << label("size") << facts.file_bytes << " bytes, version " << facts.version << ", blocks of "
      << facts.block_size << " bytes\n";
  if (facts.block_count == 0)
    return;
  summarise_classes(out, facts);
  summarise_indexes(out, facts);
  summarise_records(out, facts);
}

void summarise_half(std::ostream& out, const JournalFacts& facts, unsigned half) {
  const HalfFacts& at = facts.halves[half];
  out << label(text::concat("half ", half));
  if (!at.pointer_is_valid) {
    out << "index pointer unreadable\n";
    return;
  }
  const std::uint64_t percent = at.capacity_bytes == 0 ? 0 : at.used_bytes * 100 / at.capacity_bytes;
  out << "serial " << at.serial << (facts.newest_half == half ? " (newest)" : "") << ", "
      << counted(at.transaction_count, "transaction") << ", " << at.used_bytes << " of " << at.capacity_bytes
      << " bytes (" << percent << " %)\n";
}

void summarise_journal(std::ostream& out, const JournalFacts& facts) {
  out << (facts.is_internal ? "journal, inside main.odb" : text::concat("journal ", printable(facts.path)))
      << '\n'
      << label("size") << facts.length_bytes << " bytes, version " << facts.version << '\n';
  summarise_half(out, facts, 0);
  summarise_half(out, facts, 1);
  out << label("replay") << counted(facts.replayed_transactions, "transaction") << ", "
      << counted(facts.replayed_updates, "update") << '\n';
}

}  // namespace

void print_summary(std::ostream& out, const Inspection& inspection) {
  if (inspection.tsdb)
    summarise_tsdb(out, *inspection.tsdb);
  if (inspection.mdb)
    summarise_mdb(out, *inspection.mdb);
  if (inspection.journal)
    summarise_journal(out, *inspection.journal);
}

}  // namespace inspect
