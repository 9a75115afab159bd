// A file on the simulated disk: what the programs see and what the medium has.
//
//   contents  what a read returns, apart from stores in views not yet taken over
//   changes   writes not yet synced, oldest first
//   durable   what the medium has; durable with all changes applied is contents, unless a sync failed (S4)

#pragma once

#include <map>
#include <optional>
#include <random>
#include <set>
#include <vector>

#include "simulation/simulated_system.h"

namespace simulation {

// The memory of a mapping, placed in its file.
struct View {
  std::uint64_t position = 0;
  std::vector<std::byte> bytes;
};

class StoredFile {
 public:
  explicit StoredFile(std::span<const std::byte> contents)
      : contents_(contents.begin(), contents.end()), durable_(contents_) {}

  std::uint64_t size() const { return contents_.size(); }
  const std::vector<std::byte>& durable() const { return durable_; }
  // With the stores of all views.
  std::vector<std::byte> seen() const;

  std::size_t read(std::uint64_t position, std::span<std::byte> buffer) const;
  // Lengthens the file as needed.
  void write(std::uint64_t position, std::span<const std::byte> bytes);

  // Replaces everything, on the medium as well.
  void replace(std::span<const std::byte> contents) {
    contents_.assign(contents.begin(), contents.end());
    durable_ = contents_;
    changes_.clear();
  }

  // A view's address stays the same; not owned, to be removed before it goes.
  void add_view(View& view) { views_.push_back(&view); }
  void remove_view(View& view) { std::erase(views_, &view); }
  // Turns the changed sectors of a view, or those that `chosen` picks, into written bytes.
  template <typename Chosen>
  void take_over(const View& view, Chosen chosen);
  void take_over(const View& view);
  void take_over_some(std::mt19937_64& coin);

  void sync();
  void fail_sync() { changes_.clear(); }
  // The views go with their last stores written.
  void lose_views();
  std::size_t unsynced_count() const { return changes_.size(); }
  // `missing` is the change that all_but_one leaves out, when it is one of this file.
  void power_cut(Kept kept, std::mt19937_64& random, std::optional<std::size_t> missing);

  bool has_fixed_size = false;
  bool is_locked = false;
  platform::FileTime modification_time;

 private:
  struct Change {
    std::uint64_t position;
    std::vector<std::byte> bytes;
  };

  std::map<std::uint64_t, std::vector<const Change*>> changes_by_sector() const;
  std::set<const Change*> chosen_changes(Kept kept, std::mt19937_64& random,
                                         std::optional<std::size_t> missing) const;
  void apply_to_durable(const Change& change, std::uint64_t from, std::uint64_t to);

  std::vector<std::byte> contents_;
  std::vector<std::byte> durable_;
  std::vector<Change> changes_;
  std::vector<View*> views_;
};

}  // namespace simulation
