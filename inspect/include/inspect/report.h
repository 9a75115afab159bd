// What an inspection finds: one finding for each invariant that does not hold, and one for each state that is
// unusual but legal.

#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "common/text.h"

namespace inspect {

enum class DatabaseFile { tsdb, mdb, journal };

// The file's name in its directory; lives as long as the program. Throws nothing.
std::string_view name_of(DatabaseFile file);

enum class Severity {
  note,   // what an orderly or an interrupted run leaves; nothing is lost
  damage  // an invariant that does not hold
};

// Where something was found. A journal in a file of its own has no blocks: the offset counts from its start.
struct Place {
  DatabaseFile file = DatabaseFile::mdb;
  std::optional<std::uint64_t> block{};
  std::uint64_t offset = 0;  // bytes in the block, or in the file when there is no block

  bool operator==(const Place&) const = default;
};

struct Finding {
  Severity severity;
  Place place;
  std::string text;  // what was found and what was expected
};

// Findings in the order in which the files are walked, which is the same for the same bytes.
class Report {
 public:
  static constexpr std::size_t default_limit = 10'000;

  // Lets the report keep findings as long as no more than `count` of the severity were found; those beyond
  // are counted only, so that a file made of nothing but damage costs no more memory than its size warrants.
  void set_limit(std::size_t count) { limit_ = count; }

  // Adds a finding whose text is the concatenated pieces. Throws nothing but what memory throws.
  template <typename... Pieces>
  void damage(const Place& place, const Pieces&... pieces) {
    damage_count_ += 1;
    if (damage_count_ <= limit_)
      findings_.push_back({Severity::damage, place, text::concat(pieces...)});
  }

  // As damage(), for what is legal.
  template <typename... Pieces>
  void note(const Place& place, const Pieces&... pieces) {
    note_count_ += 1;
    if (note_count_ <= limit_)
      findings_.push_back({Severity::note, place, text::concat(pieces...)});
  }

  // Damage when the two differ.
  template <typename Value>
  void expect_equal(const Place& place, std::string_view what, const Value& found, const Value& expected) {
    if (found != expected)
      damage(place, what, ": found ", found, ", expected ", expected);
  }

  const std::vector<Finding>& findings() const { return findings_; }
  std::uint64_t damage_count() const { return damage_count_; }
  std::uint64_t note_count() const { return note_count_; }
  // How many findings are counted but not kept.
  std::uint64_t omitted_count() const { return damage_count_ + note_count_ - findings_.size(); }

 private:
  std::vector<Finding> findings_;
  std::size_t limit_ = default_limit;
  std::uint64_t damage_count_ = 0;
  std::uint64_t note_count_ = 0;
};

}  // namespace inspect
