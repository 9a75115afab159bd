#include "views/names.h"
#include "views/text.h"

namespace inspect {
namespace {

constexpr std::size_t number_width = 10;

std::string number(std::uint64_t value) {
  return right(text::decimal(value), number_width);
}

std::string runs_text(const std::vector<BlockRun>& runs) {
  std::string line;
  for (const BlockRun& run : runs) {
    text::append(line, text::concat(line.empty() ? "" : ", ", run.first_block));
    if (run.block_count > 1)
      text::append(line, text::concat("-", run.first_block + run.block_count - 1));
  }
  return line;
}

void print_chain(std::ostream& out, const TsdbFacts& facts, std::size_t kind, std::uint32_t set) {
  const ChainFacts& chain = facts.chains[kind][set];
  out << "  " << left(text::concat(chain_kind_name(kind), " ", set), number_width) << "timestamp "
      << chain.timestamp << ", " << (facts.newest_set[kind] == set ? "committed last" : name_of(chain.state));
  if (chain.runs.empty()) {
    out << ", first block " << chain.first_block << ", which cannot be followed\n";
  } else {
    out << ", " << counted(chain.block_count, "block") << ": " << runs_text(chain.runs) << '\n';
  }
}

void print_levels(std::ostream& out, const TsdbFacts& facts) {
  out << counted(facts.levels.size(), "level") << '\n';
  if (facts.levels.empty())
    return;
  out << "       level     first    blocks      next     param      head      tail\n";
  for (const LevelFacts& level : facts.levels) {
    out << "  " << number(level.number) << number(level.first_block) << number(level.block_count)
        << number(level.next_level) << number(level.parameter) << number(level.head) << number(level.tail)
        << '\n';
  }
}

void print_series(std::ostream& out, const TsdbFacts& facts) {
  out << facts.series.size() << " time series\n";
  for (const SeriesFacts& series : facts.series) {
    out << "  check ID " << series.check_id << ", datatype " << series.datatype << ", levels";
    for (const std::uint32_t level : series.levels)
      out << ' ' << level;
    out << '\n';
  }
}

}  // namespace

void print_chains(std::ostream& out, const TsdbFacts& facts) {
  out << "Chains of main.tsdb, each in " << counted(facts.set_count, "set") << '\n';
  for (std::size_t kind = 0; kind < chain_kind_count; ++kind) {
    for (std::uint32_t set = 0; set < facts.chains[kind].size(); ++set)
      print_chain(out, facts, kind, set);
  }
  print_levels(out, facts);
  print_series(out, facts);
}

}  // namespace inspect
