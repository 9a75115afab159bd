#include "tsdb_series.h"

#include <algorithm>
#include <tuple>
#include <utility>

#include "timeseries/chain_kind.h"
#include "timeseries/format.h"

namespace inspect {
namespace {

using tsdb::ChainKind;
using tsdb::LBlockEntry;

constexpr std::uint32_t known_datatypes = 4;

// The entries of one chain, and where each of them stands.
class EntryTable {
 public:
  EntryTable(const SourceFile& file, const TsdbShape& shape, ChainKind kind, const ChainBlocks& chain)
      : file_(file),
        chain_(chain),
        block_size_(shape.block_size),
        width_(tsdb::traits_of(kind).entry_size_bytes),
        per_block_((shape.block_size - tsdb::format::pointer_block::entries) / width_) {}

  std::uint64_t capacity() const { return chain_.blocks.size() * per_block_; }

  Place place(std::uint64_t number) const {
    return place_in_tsdb(chain_.blocks[number / per_block_],
                         tsdb::format::pointer_block::entries + width_ * (number % per_block_));
  }

  // Calls visit(number, bytes) for every entry.
  template <typename Visitor>
  void for_each(Visitor visit) const {
    std::uint64_t number = 0;
    for (const std::uint32_t block : chain_.blocks) {
      const Bytes bytes = file_.read(std::uint64_t{block} * block_size_, block_size_);
      for (std::uint64_t slot = 0; slot < per_block_; ++slot, ++number) {
        visit(number, ByteView(bytes).subspan(tsdb::format::pointer_block::entries + width_ * slot, width_));
      }
    }
  }

 private:
  const SourceFile& file_;
  const ChainBlocks& chain_;
  std::uint64_t block_size_;
  std::uint64_t width_;
  std::uint64_t per_block_;
};

// A range of blocks and what it belongs to.
struct Claim {
  std::uint32_t first_block;
  std::uint32_t block_count;
  bool is_level;
  std::uint32_t level;
  ChainId chain;

  std::uint64_t end() const { return std::uint64_t{first_block} + block_count; }
  std::string name() const { return is_level ? text::concat("level ", level) : name_of(chain); }
};

enum class LevelUse : std::uint8_t { unreached, followed_by_series, followed_alone };

class SeriesCheck {
 public:
  SeriesCheck(const SourceFile& file, const TsdbShape& shape, const CommittedChains& chains,
              const Wanted& wanted, TsdbFacts& facts, Report& report)
      : shape_(shape),
        chains_(chains),
        wanted_(wanted),
        facts_(facts),
        report_(report),
        heads_(file, shape, ChainKind::head, chain(ChainKind::head)),
        tails_(file, shape, ChainKind::tail, chain(ChainKind::tail)),
        lblocks_(file, shape, ChainKind::lblock, chain(ChainKind::lblock)),
        checks_(file, shape, ChainKind::check, chain(ChainKind::check)) {}

  void run(const std::unordered_map<std::uint32_t, ChainId>& owners) {
    read_levels();
    check_block_ranges();
    check_overlaps(owners);
    check_check_entries();
    check_levels_without_series();
    check_ends(ChainKind::head, heads_);
    check_ends(ChainKind::tail, tails_);
    if (wanted_.chains)
      list_levels();
  }

 private:
  const ChainBlocks& chain(ChainKind kind) const { return chains_[tsdb::kind_index(kind)]; }
  bool is_in_use(std::uint64_t level) const { return levels_[level].first_block != 0; }

  void read_levels() {
    levels_.reserve(lblocks_.capacity());
    lblocks_.for_each([this](std::uint64_t, ByteView entry) {
      namespace at = tsdb::format::lblock_entry;
      levels_.push_back({bytes::load_u32(entry, at::first_block), bytes::load_u32(entry, at::block_count),
                         bytes::load_u32(entry, at::next_lblock), bytes::load_u32(entry, at::parameter)});
    });
    for (std::uint64_t level = 0; level < levels_.size(); ++level) {
      const LBlockEntry& entry = levels_[level];
      if (!is_in_use(level) && (entry.block_count | entry.next_lblock | entry.parameter) != 0)
        report_.note(lblocks_.place(level), "level ", level, " is not in use, but its entry is not empty");
    }
    use_.resize(levels_.size());
  }

  void check_block_ranges() {
    for (std::uint64_t level = 0; level < levels_.size(); ++level) {
      if (!is_in_use(level))
        continue;
      facts_.level_count += 1;
      facts_.level_blocks += levels_[level].block_count;
      const std::uint64_t end = std::uint64_t{levels_[level].first_block} + levels_[level].block_count;
      if (levels_[level].block_count == 0) {
        report_.damage(lblocks_.place(level), "level ", level, ": found no blocks, expected one at least");
      } else if (end > shape_.block_count) {
        report_.damage(lblocks_.place(level), "level ", level, ": found blocks ", levels_[level].first_block,
                       " to ", end - 1, ", expected none past ", shape_.block_count - 1);
      }
    }
  }

  // No block belongs to two chains or levels. Chains have no block in common already.
  void check_overlaps(const std::unordered_map<std::uint32_t, ChainId>& owners) {
    std::vector<Claim> claims;
    claims.reserve(owners.size() + levels_.size());
    for (const auto& [block, id] : owners)
      claims.push_back({block, 1, false, 0, id});
    for (std::uint64_t level = 0; level < levels_.size(); ++level) {
      if (is_in_use(level)) {
        claims.push_back({levels_[level].first_block,
                          levels_[level].block_count,
                          true,
                          static_cast<std::uint32_t>(level),
                          {}});
      }
    }
    std::ranges::sort(claims, [](const Claim& a, const Claim& b) {
      return std::tuple(a.first_block, a.is_level, a.level) < std::tuple(b.first_block, b.is_level, b.level);
    });
    report_overlaps(claims);
  }

  void report_overlaps(const std::vector<Claim>& claims) {
    const Claim* reaching = nullptr;  // the one that ends last so far
    for (const Claim& claim : claims) {
      if (reaching != nullptr && claim.first_block < reaching->end() && claim.block_count != 0) {
        const Place place = claim.is_level       ? lblocks_.place(claim.level)
                            : reaching->is_level ? lblocks_.place(reaching->level)
                                                 : place_in_tsdb(claim.first_block, 0);
        report_.damage(place, "block ", claim.first_block, ": found in ", reaching->name(), " and in ",
                       claim.name(), ", expected in one of them");
      }
      if (reaching == nullptr || claim.end() > reaching->end())
        reaching = &claim;
    }
  }

  void check_check_entries() {
    checks_.for_each([this](std::uint64_t id, ByteView entry) {
      const std::uint32_t datatype = bytes::load_u32(entry, tsdb::format::check_entry::datatype);
      if (datatype == 0) {
        if (bytes::load_u32(entry, tsdb::format::check_entry::first_lblock) != 0)
          report_.note(checks_.place(id), "time series ", id, " is not in use, but its entry is not empty");
        return;
      }
      facts_.series_count += 1;
      if (datatype > known_datatypes) {
        report_.damage(checks_.place(id), "time series ", id, ", datatype: found ", datatype,
                       ", expected 1 to ", known_datatypes);
      }
      if (wanted_.chains)
        facts_.series.push_back({id, datatype, {}});
      follow_series(text::concat("time series ", id), checks_.place(id),
                    bytes::load_u32(entry, tsdb::format::check_entry::first_lblock),
                    LevelUse::followed_by_series, true);
    });
  }

  // Follows a series from level to level; each level belongs to one series, so that no walk is longer than
  // the chain.
  void follow_series(const std::string& series, Place named_at, std::uint32_t level, LevelUse use,
                     bool must_have_level) {
    while (level != 0 || must_have_level) {
      must_have_level = false;
      if (level >= levels_.size() && !chain(ChainKind::lblock).is_whole)
        return;  // the entry lies where the chain could not be followed
      if (level == 0 || level >= levels_.size() || !is_in_use(level)) {
        report_.damage(named_at, series, ", level: found ", level, ", expected the number of a level in use");
        return;
      }
      if (use_[level] != LevelUse::unreached) {
        report_.damage(named_at, series, ": found level ", level,
                       " a second time, expected one that belongs to no series yet");
        return;
      }
      use_[level] = use;
      if (use == LevelUse::followed_by_series) {
        check_has_ends(level);
        if (wanted_.chains)
          facts_.series.back().levels.push_back(level);
      }
      named_at = lblocks_.place(level);
      level = levels_[level].next_lblock;
    }
  }

  void check_has_ends(std::uint32_t level) {
    for (const auto& [kind, table] :
         {std::pair(ChainKind::head, &heads_), std::pair(ChainKind::tail, &tails_)}) {
      if (level >= table->capacity() && chain(kind).is_whole) {
        report_.damage(lblocks_.place(level), "level ", level, ": found a ", tsdb::traits_of(kind).name,
                       " chain with ", table->capacity(), " entries, expected one for the level");
      }
    }
  }

  // A run that ends between the commits of the chains leaves levels that belong to no series yet. They hang
  // together like a series.
  void check_levels_without_series() {
    if (!chain(ChainKind::check).is_whole)
      return;
    std::vector<bool> is_next(levels_.size());
    for (std::uint64_t level = 1; level < levels_.size(); ++level) {
      const std::uint32_t next = is_in_use(level) ? levels_[level].next_lblock : 0;
      if (next < is_next.size() && use_[level] == LevelUse::unreached)
        is_next[next] = true;
    }
    for (const bool in_a_ring : {false, true}) {
      for (std::uint64_t level = 1; level < levels_.size(); ++level) {
        if (!is_in_use(level) || use_[level] != LevelUse::unreached || (is_next[level] && !in_a_ring))
          continue;
        report_.note(lblocks_.place(level), "level ", level, " belongs to no time series");
        use_[level] = LevelUse::followed_alone;
        follow_series(text::concat("level ", level), lblocks_.place(level), levels_[level].next_lblock,
                      LevelUse::followed_alone, false);
      }
    }
  }

  void check_ends(ChainKind kind, const EntryTable& table) {
    table.for_each([&](std::uint64_t number, ByteView entry) {
      const std::uint32_t value = bytes::load_u32(entry, 0);
      if (value == 0 || (number >= levels_.size() && !chain(ChainKind::lblock).is_whole))
        return;
      if (number >= levels_.size() || !is_in_use(number)) {
        report_.damage(table.place(number), tsdb::traits_of(kind).name, " entry ", number, ": found ", value,
                       ", expected 0 as there is no level ", number);
      }
    });
  }

  void list_levels() {
    std::vector<std::size_t> listed_at(levels_.size());
    for (std::uint32_t number = 0; number < levels_.size(); ++number) {
      if (!is_in_use(number))
        continue;
      const LBlockEntry& level = levels_[number];
      listed_at[number] = facts_.levels.size();
      facts_.levels.push_back(
          {number, level.first_block, level.block_count, level.next_lblock, level.parameter, 0, 0});
    }
    const auto note_ends = [&](const EntryTable& table, std::uint32_t LevelFacts::*end) {
      table.for_each([&](std::uint64_t number, ByteView entry) {
        if (number < levels_.size() && is_in_use(number))
          facts_.levels[listed_at[number]].*end = bytes::load_u32(entry, 0);
      });
    };
    note_ends(heads_, &LevelFacts::head);
    note_ends(tails_, &LevelFacts::tail);
  }

  TsdbShape shape_;
  const CommittedChains& chains_;
  const Wanted& wanted_;
  TsdbFacts& facts_;
  Report& report_;
  EntryTable heads_;
  EntryTable tails_;
  EntryTable lblocks_;
  EntryTable checks_;
  std::vector<LBlockEntry> levels_;
  std::vector<LevelUse> use_;
};

}  // namespace

void check_series(const SourceFile& file, const TsdbShape& shape, const CommittedChains& chains,
                  const std::unordered_map<std::uint32_t, ChainId>& owners, const Wanted& wanted,
                  TsdbFacts& facts, Report& report) {
  SeriesCheck(file, shape, chains, wanted, facts, report).run(owners);
}

}  // namespace inspect
