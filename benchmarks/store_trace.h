// What the operations of this system's store put into its journal, transaction by transaction, so that a
// floor can write the same without knowing why.

#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace bench {

struct Change {
  std::uint64_t target;  // byte offset in the database
  std::uint32_t length;  // bytes
};

class Trace {
 public:
  void add(const Change& change) { changes_.push_back(change); }
  void end_transaction() { transaction_ends_.push_back(changes_.size()); }
  void end_operation() { operation_ends_.push_back(transaction_ends_.size()); }

  std::size_t operation_count() const { return operation_ends_.size(); }
  // Blocks of that size up to the last that is changed.
  std::uint64_t block_count(std::uint64_t block_bytes) const {
    std::uint64_t end = 0;
    for (const Change& change : changes_)
      end = std::max(end, change.target + change.length);
    return (end + block_bytes - 1) / block_bytes;
  }

  // Calls `visit(std::span<const Change>)` for each transaction of an operation.
  template <typename Visitor>
  void for_each_transaction(std::size_t operation, Visitor visit) const {
    for (std::size_t i = start(operation_ends_, operation); i < operation_ends_[operation]; ++i) {
      const std::size_t first = start(transaction_ends_, i);
      visit(std::span(changes_).subspan(first, transaction_ends_[i] - first));
    }
  }

 private:
  static std::size_t start(const std::vector<std::size_t>& ends, std::size_t number) {
    return number == 0 ? 0 : ends[number - 1];
  }

  std::vector<Change> changes_;
  std::vector<std::size_t> transaction_ends_;
  std::vector<std::size_t> operation_ends_;
};

// Reads along in the journal of the store that is open.
class TraceRecorder {
 public:
  // What is in the journal already is left out.
  TraceRecorder();
  // Takes what was written since the last call for one operation.
  void end_operation();
  const Trace& trace() const { return trace_; }

 private:
  void enter_newest_half();
  void follow();

  Trace trace_;
  std::uint64_t serial_ = 0;
  std::uint64_t position_ = 0;
};

}  // namespace bench
