// A pointer chain in memory: an array of fixed-size entries, kept in runs of contiguous pointer blocks.
// Nothing here reads or writes the file.
//
// An entry is numbered within its run (`entry_index`) or through the whole chain (`entry_number`). Entries
// are words of 32 bits; one whose first word is 0 is free where a kind knows free entries.

#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "timeseries/chain_kind.h"

namespace tsdb {

// Where the entries of a kind lie in pointer blocks of one size.
struct PointerLayout {
  // REQUIRES: a block of format::minimum_block_size bytes or more.
  PointerLayout(ChainKind kind, std::uint32_t block_size);

  // Byte offset of an entry in its run.
  std::size_t offset_of(std::uint64_t entry_index) const;

  std::uint32_t block_size_bytes;
  std::uint32_t entry_size_bytes;
  std::uint32_t entries_per_block;
};

// Contiguous pointer blocks and the buffer that holds them as they are written.
class Run {
 public:
  // Pointer blocks with zero entries, linked to one another in order; dirty.
  Run(ChainKind kind, const PointerLayout& layout, std::uint32_t chain_set, std::uint32_t first_block,
      std::uint32_t block_count);

  std::uint32_t first_block() const { return first_block_; }
  std::uint32_t block_count() const { return block_count_; }
  // Number of entries.
  std::uint64_t capacity() const { return std::uint64_t{block_count_} * layout_.entries_per_block; }

  // Whether the buffer holds anything that has not been written.
  bool dirty() const { return dirty_; }
  // Whether the next sync has to write the run, or has just done so.
  void mark_dirty() { dirty_ = true; }
  void mark_written() { dirty_ = false; }

  // The blocks as they are written; valid until the run is changed or moved.
  std::span<const std::byte> buffer() const { return buffer_; }

  // A word of an entry. REQUIRES: the entry and the word exist.
  std::uint32_t word(std::uint64_t entry_index, std::uint32_t word_index) const;

  // Stores the first words of an entry and marks the run dirty.
  // Throws error_internal for an entry beyond the run.
  void store(std::uint64_t entry_index, std::span<const std::uint32_t> words);

  // Makes `next_block` the successor of the run's last block and marks the run dirty.
  void link_to(std::uint32_t next_block);

  // The lowest entry whose first word is 0. Cheap: what a search passed is not looked at again until it
  // is freed or overwritten.
  std::optional<std::uint64_t> find_free();

  // Copies `count` entries from `source` (which may be this run, at the same place) and marks the run dirty.
  // REQUIRES: the entries exist in both, and both runs have the same layout.
  void copy_entries(std::uint64_t entry_index, const Run& source, std::uint64_t source_index,
                    std::uint64_t count);

  // Sets the whole entry area of every block to zero and marks the run dirty.
  void clear_entries();

 private:
  void note_copied(std::uint64_t entry_index, const Run& source, std::uint64_t source_index,
                   std::uint64_t count);

  PointerLayout layout_;
  std::uint32_t first_block_;
  std::uint32_t block_count_;
  bool dirty_ = true;
  // No entry below it is free.
  std::uint64_t first_possibly_free_ = 0;
  std::vector<std::byte> buffer_;
};

// The chain descriptor: one chain of one kind in one chain set.
class Chain {
 public:
  // A chain without runs.
  Chain(ChainKind kind, std::uint32_t chain_set, std::uint32_t block_size);

  ChainKind kind() const { return kind_; }
  const ChainTraits& traits() const { return traits_of(kind_); }
  std::uint32_t chain_set() const { return chain_set_; }
  std::uint32_t entries_per_block() const { return layout_.entries_per_block; }

  // The runs in chain order. A reference to one does not outlive an append.
  std::span<const Run> runs() const { return runs_; }
  // The same for a caller that may change any of them; not to be held over a search.
  std::span<Run> runs_to_change();
  // The same of the last one alone. REQUIRES: there is one.
  Run& last_run();

  // A zero run for this chain, not yet part of it.
  Run make_run(std::uint32_t first_block, std::uint32_t block_count) const;
  // Adds a run at the end.
  void append(Run run);

  // Number of entries.
  std::uint64_t capacity() const { return capacity_; }

  struct Position {
    std::size_t run_index;
    std::uint64_t entry_index;
  };
  // Where an entry lies; nothing for a number beyond the chain.
  std::optional<Position> locate(std::uint64_t entry_number) const;

  // Stores the first words of an entry. Returns whether the entry exists.
  bool store(std::uint64_t entry_number, std::span<const std::uint32_t> words);

  // No run before this one has a free entry.
  std::size_t first_open_run() const { return first_open_run_; }
  // Run::find_free() of a run, remembered for first_open_run().
  std::optional<std::uint64_t> find_free_in(std::size_t run_index);
  // Number of a run's first entry.
  std::uint64_t run_start(std::size_t run_index) const { return run_starts_[run_index]; }

  // Whether any run is dirty.
  bool dirty() const;
  // Marks every run dirty.
  void mark_dirty();

 private:
  ChainKind kind_;
  std::uint32_t chain_set_;
  PointerLayout layout_;
  std::vector<Run> runs_;
  std::vector<std::uint64_t> run_starts_;
  std::size_t first_open_run_ = 0;
  std::uint64_t capacity_ = 0;
};

// Stores the first word of an entry of a run, or of a chain.
// Throws error_internal for an entry beyond it.
void set_chain_pointer(Run& run, std::uint32_t entry_index, std::uint32_t value);
void set_chain_pointer(Chain& chain, std::uint32_t entry_number, std::uint32_t value);

// Stores the first words of an entry of a chain. Throws error_internal for an entry beyond it.
void store_entry(Chain& chain, std::uint64_t entry_number, std::span<const std::uint32_t> words);

// The chain's capacity in entries, at most 2^32 - 1; 0 without runs.
std::uint32_t chain_pointer_count(const Chain& chain);

// Names `first_block` as the block that follows `last`. It reaches the file with the next write of that run.
void link_run(Run& last, std::uint32_t first_block);

}  // namespace tsdb
