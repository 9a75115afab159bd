#include "tsdb_check.h"

#include <algorithm>
#include <bit>
#include <limits>

#include "common/crc32.h"
#include "timeseries/chain_kind.h"
#include "timeseries/format.h"
#include "tsdb_chains.h"
#include "tsdb_series.h"
#include "words.h"

namespace inspect {
namespace {

namespace header = tsdb::format::header;
namespace chain_entry = tsdb::format::chain_entry;

// How far behind a raised timestamp the one that its CRC was made for is looked for: a chain's last commit is
// as many commits of its kind ago as there are sets, and a little more when commits had to be repeated.
constexpr std::uint64_t raised_timestamp_reach = 1'024;

// Bounds the chain sets that a header can name, and with them what a hostile one costs.
constexpr std::uint64_t largest_block_size = 1'048'576;

Place in_header(std::uint64_t offset) {
  return place_in_tsdb(0, offset);
}

std::uint32_t crc_of(std::uint64_t timestamp, std::uint32_t first_block) {
  std::array<std::byte, chain_entry::crc> covered{};
  bytes::store_u64(covered, chain_entry::timestamp, timestamp);
  bytes::store_u32(covered, chain_entry::first_block, first_block);
  return security::crc32(covered);
}

bool crc_fits_older_timestamp(const tsdb::ChainTableEntry& entry) {
  if (entry.timestamp > 0 && crc_of(0, entry.first_block) == entry.crc)
    return true;  // as created
  const std::uint64_t oldest = entry.timestamp - std::min(entry.timestamp, raised_timestamp_reach);
  for (std::uint64_t timestamp = entry.timestamp; timestamp > oldest; --timestamp) {
    if (crc_of(timestamp - 1, entry.first_block) == entry.crc)
      return true;
  }
  return false;
}

class TsdbCheck {
 public:
  TsdbCheck(const SourceFile& file, const Wanted& wanted, Report& report)
      : file_(file), wanted_(wanted), report_(report) {}

  TsdbFacts run() {
    facts_.file_bytes = file_.size_bytes();
    if (!read_fields() || !check_sizes())
      return facts_;
    const Bytes table = file_.read(0, header::chain_table + table_bytes());
    check_rest_of_header();
    for (std::uint32_t kind = 0; kind < chain_kind_count; ++kind)
      read_table_entries(kind, table);
    walk_chains();
    return facts_;
  }

 private:
  std::uint64_t table_bytes() const {
    return chain_kind_count * chain_entry::size * std::uint64_t{facts_.set_count};
  }
  std::uint64_t entry_offset(ChainId id) const {
    return header::chain_table + chain_entry::size * (std::uint64_t{id.kind} * facts_.set_count + id.set);
  }

  bool read_fields() {
    if (file_.size_bytes() < header::chain_table) {
      report_.damage(in_header(0), "header: found ", file_.size_bytes(), " bytes in the file, expected ",
                     header::chain_table, " at least");
      return false;
    }
    const Bytes fields = file_.read(0, header::chain_table);
    report_.expect_equal(in_header(header::magic), "magic",
                         magic_text(bytes::load_u32(fields, header::magic)), magic_text(header::magic_value));
    facts_.version = bytes::load_u32(fields, header::version);
    report_.expect_equal(in_header(header::version), "version", facts_.version, header::version_value);
    facts_.block_size = bytes::load_u32(fields, header::block_size);
    report_.expect_equal(in_header(header::reserved), "reserved word",
                         bytes::load_u32(fields, header::reserved), std::uint32_t{0});
    facts_.creation_time = bytes::load_u32(fields, header::creation_time);
    facts_.set_count = bytes::load_u32(fields, header::chain_set_count);
    return true;
  }

  // Without sizes that make sense there is nothing to follow.
  bool check_sizes() {
    const std::uint32_t size = facts_.block_size;
    const std::uint64_t largest = std::min<std::uint64_t>(largest_block_size, file_.size_bytes());
    if (!std::has_single_bit(size) || size < tsdb::format::minimum_block_size || size > largest) {
      report_.damage(in_header(header::block_size), "block size: found ", size,
                     ", expected a power of two from ", tsdb::format::minimum_block_size, " to ", largest);
      return false;
    }
    if (facts_.set_count == 0 || header::chain_table + table_bytes() > size) {
      report_.damage(in_header(header::chain_set_count), "number of chain sets: found ", facts_.set_count,
                     ", expected 1 to ",
                     (size - header::chain_table) / (chain_kind_count * chain_entry::size));
      facts_.set_count = 0;
      return false;
    }
    shape_ = {size, file_.size_bytes() / size, facts_.set_count};
    constexpr std::uint64_t most_blocks = std::uint64_t{std::numeric_limits<std::uint32_t>::max()} + 1;
    if (shape_.block_count > most_blocks) {
      report_.damage(in_header(0), "file size: found ", shape_.block_count, " blocks, expected ", most_blocks,
                     " at most");
    }
    if (const std::uint64_t torn = file_.size_bytes() % size; torn != 0) {
      report_.note(place_in_tsdb(shape_.block_count, 0), "the last ", torn,
                   " bytes of the file are no whole block: growth was interrupted");
    }
    return true;
  }

  void check_rest_of_header() {
    const auto found = file_.find_nonzero(header::chain_table + table_bytes(), shape_.block_size);
    if (found)
      report_.damage(in_header(*found), "rest of the header: found a byte that is not zero, expected zeros");
  }

  void read_table_entries(std::uint32_t kind, ByteView table) {
    entries_[kind].resize(facts_.set_count);
    facts_.chains[kind].resize(facts_.set_count);
    for (std::uint32_t set = 0; set < facts_.set_count; ++set) {
      const auto at = table.subspan(static_cast<std::size_t>(entry_offset({kind, set})), chain_entry::size);
      entries_[kind][set] = {bytes::load_u64(at, chain_entry::timestamp),
                             bytes::load_u32(at, chain_entry::first_block),
                             bytes::load_u32(at, chain_entry::crc)};
      const tsdb::ChainTableEntry& entry = entries_[kind][set];
      ChainFacts& chain = facts_.chains[kind][set];
      chain = {.state = ChainState::damaged, .timestamp = entry.timestamp, .first_block = entry.first_block};
      if (crc_of(entry.timestamp, entry.first_block) == entry.crc)
        chain.state = ChainState::valid;
    }
    for (std::uint32_t set = 0; set < facts_.set_count; ++set) {
      if (facts_.chains[kind][set].state != ChainState::valid)
        judge_mismatch({kind, set});
    }
    choose_newest(kind);
  }

  // The set after the one committed last bears that one's timestamp in memory from the commit on, and may
  // reach the file so.
  void judge_mismatch(ChainId id) {
    const tsdb::ChainTableEntry& entry = entries_[id.kind][id.set];
    const ChainFacts& preceding = facts_.chains[id.kind][(id.set + facts_.set_count - 1) % facts_.set_count];
    if (preceding.state == ChainState::valid && preceding.timestamp == entry.timestamp &&
        crc_fits_older_timestamp(entry)) {
      facts_.chains[id.kind][id.set].state = ChainState::raised_ahead;
      report_.note(in_header(entry_offset(id)), name_of(id), ": its timestamp ", entry.timestamp,
                   " was raised ahead of its next commit");
      return;
    }
    report_.damage(in_header(entry_offset(id) + chain_entry::crc), name_of(id), ", CRC of its entry: found ",
                   entry.crc, ", expected ", crc_of(entry.timestamp, entry.first_block));
  }

  void choose_newest(std::uint32_t kind) {
    std::optional<std::uint32_t>& newest = facts_.newest_set[kind];
    for (std::uint32_t set = 0; set < facts_.set_count; ++set) {
      const ChainFacts& chain = facts_.chains[kind][set];
      if (chain.state != ChainState::valid)
        continue;
      if (newest && chain.timestamp == facts_.chains[kind][*newest].timestamp && chain.timestamp != 0) {
        report_.damage(in_header(entry_offset({kind, set})), name_of({kind, set}), ": found timestamp ",
                       chain.timestamp, " of set ", *newest, ", expected one of its own");
      }
      if (!newest || chain.timestamp > facts_.chains[kind][*newest].timestamp)
        newest = set;
    }
    if (!newest) {
      report_.damage(in_header(entry_offset({kind, 0})), tsdb::chain_traits[kind].name,
                     " chains: found no valid set, expected one at least");
    }
  }

  // The set that receives the changes since the last commit. Before the first commit that is set 0.
  bool is_being_changed(ChainId id) const {
    const auto& newest = facts_.newest_set[id.kind];
    if (!newest)
      return false;
    if (facts_.chains[id.kind][*newest].timestamp == 0)
      return id.set == 0;
    return id.set == (*newest + 1) % facts_.set_count;
  }

  // The set whose entries are committed. While no set has been, that is one in which nothing is being
  // changed.
  std::optional<std::uint32_t> committed_set(std::uint32_t kind) const {
    const auto& newest = facts_.newest_set[kind];
    if (!newest || facts_.chains[kind][*newest].timestamp != 0)
      return newest;
    std::uint32_t set = facts_.set_count - 1;
    while (set != *newest && facts_.chains[kind][set].state != ChainState::valid)
      set -= 1;
    return set;
  }

  void walk_chains() {
    ChainWalker walker(file_, shape_, report_);
    CommittedChains committed;
    for (std::uint32_t kind = 0; kind < chain_kind_count; ++kind) {
      for (std::uint32_t set = 0; set < facts_.set_count; ++set) {
        ChainFacts& chain = facts_.chains[kind][set];
        if (chain.state == ChainState::damaged)
          continue;
        const ChainId id{kind, set};
        const Place named_at = in_header(entry_offset(id) + chain_entry::first_block);
        ChainBlocks blocks = walker.walk(id, chain.first_block, named_at, is_being_changed(id));
        chain.block_count = blocks.blocks.size();
        chain.runs = blocks.runs();
        if (committed_set(kind) == set)
          committed[kind] = std::move(blocks);
      }
    }
    check_series(file_, shape_, committed, walker.owners(), wanted_, facts_, report_);
  }

  const SourceFile& file_;
  const Wanted& wanted_;
  Report& report_;
  TsdbFacts facts_;
  TsdbShape shape_{};
  std::array<std::vector<tsdb::ChainTableEntry>, chain_kind_count> entries_;
};

}  // namespace

TsdbFacts check_tsdb(const SourceFile& file, const Wanted& wanted, Report& report) {
  return TsdbCheck(file, wanted, report).run();
}

}  // namespace inspect
