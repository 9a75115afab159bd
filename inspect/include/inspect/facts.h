// What a database pair consists of, as far as its files could be read. Numbers come from the files and may
// be nonsense where the report has findings.

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "inspect/details.h"

namespace inspect {

inline constexpr std::size_t chain_kind_count = 4;  // head, tail, lblock, check

enum class ChainState {
  valid,         // the CRC of its entry in the chain table fits
  raised_ahead,  // the changes that follow the last commit are being made in it
  damaged
};

struct ChainFacts {
  ChainState state = ChainState::damaged;
  std::uint64_t timestamp = 0;
  std::uint32_t first_block = 0;
  std::uint64_t block_count = 0;  // as many as could be followed
  std::vector<BlockRun> runs{};   // those blocks, in the order of the chain
};

struct TsdbFacts {
  std::uint64_t file_bytes = 0;
  std::uint32_t version = 0;
  std::uint32_t block_size = 0;
  std::uint32_t creation_time = 0;  // seconds since 1970-01-01 UTC
  std::uint32_t set_count = 0;
  std::array<std::vector<ChainFacts>, chain_kind_count> chains{};  // by kind, then by set
  // The set that was committed last; none when no entry of the kind is valid.
  std::array<std::optional<std::uint32_t>, chain_kind_count> newest_set{};
  std::uint64_t level_count = 0;
  std::uint64_t level_blocks = 0;
  std::uint64_t series_count = 0;
  std::vector<LevelFacts> levels;  // when wanted
  std::vector<SeriesFacts> series;
};

// How the entries of a half come to their end.
enum class HalfEnd {
  nothing_more,  // no begin entry
  stale,         // a begin entry of an earlier use of the half
  begun,         // a begin entry that nothing follows
  torn,          // a transaction without end, or with another CRC
  redirected,
  past_mapped_blocks,  // an update that the database cannot hold
  past_journal
};

struct HalfFacts {
  bool pointer_is_valid = false;
  std::uint64_t serial = 0;
  std::uint32_t first_entry = 0;        // byte offset in the journal
  std::uint64_t transaction_count = 0;  // complete ones that bear the serial
  std::uint64_t used_bytes = 0;
  std::uint64_t capacity_bytes = 0;
  std::optional<HalfEnd> end{};  // none when nobody looked at the entries
  std::uint64_t end_offset = 0;
  std::vector<TransactionFacts> transactions{};  // when wanted, with what is torn at their end
};

struct JournalFacts {
  bool is_internal = false;
  std::string path;  // external only: what was opened
  std::uint64_t length_bytes = 0;
  std::uint32_t version = 0;
  std::array<HalfFacts, 2> halves{};
  // The half that is read first when the database is opened; none when neither pointer can be read.
  std::optional<unsigned> newest_half{};
  std::uint64_t replayed_transactions = 0;
  std::uint64_t replayed_updates = 0;
};

inline constexpr std::size_t block_class_count = 8;
inline constexpr std::size_t honoured_index_count = 6;

struct IndexFacts {
  std::uint32_t root_block = 0;
  bool is_made = false;   // the root's class says so
  bool is_whole = false;  // every node could be followed
  std::uint64_t node_count = 0;
  std::uint64_t leaf_count = 0;
  std::uint64_t entry_count = 0;
  std::vector<IndexNodeFacts> nodes;
  std::vector<IndexEntryFacts> entries;  // when wanted
};

struct MdbFacts {
  std::uint64_t file_bytes = 0;
  std::uint32_t version = 0;
  std::uint32_t block_size = 0;
  std::uint32_t map_first_block = 0;
  std::uint32_t data_first_block = 0;
  std::uint64_t block_count = 0;  // with the journal laid over
  // How many blocks of the file are of each class; those of no class are in `unknown_class_count`.
  std::array<std::uint64_t, block_class_count> class_counts{};
  std::uint64_t unknown_class_count = 0;
  std::vector<IndexFacts> indexes;
  std::vector<std::uint64_t> records_by_type;  // of the records that an index names, by node type
  std::uint64_t records_without_type = 0;
  std::uint64_t unnamed_object_count = 0;
  std::uint64_t journal_first_block = 0;  // of an internal one; 0 for none
  std::vector<std::uint8_t> classes;      // of each block of the file that has a class
  std::vector<DataBlockFacts> data_blocks;
  std::vector<NodeFacts> nodes;  // when wanted, in the order of their places
};

}  // namespace inspect
