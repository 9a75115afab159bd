#include "recovery.h"

#include <algorithm>
#include <vector>

#include "common/errors.h"
#include "common/log.h"
#include "metadb/storage/backing_store.h"

namespace mdb {
namespace {

// The walk of recovery. Edges between its states:
//
//   walking ──redirection, first────────────────────────▶ redirected
//   walking ──quiet end, other half's pointer unreadable─▶ redirected
//   walking, redirected ──anything else that is no complete transaction of the serial─▶ done
class Recovery {
 public:
  Recovery(JournalBytes journal, const RecoveryStart& start)
      : journal_(journal),
        unreadable_half_(start.unreadable_half),
        position_(start.pointer.jpos),
        result_{start.pointer.serial, 0} {}

  RecoveryResult run() {
    while (step()) {
    }
    return result_;
  }

 private:
  bool step() {
    switch (entry_kind(journal_, position_)) {
      case EntryKind::redirection:
        return follow_redirection();
      case EntryKind::begin:
        return begin_serial(journal_, position_) == result_.serial ? transaction() : stale_transaction();
      default:
        log(logging::information, logging::replay, "End of valid transaction-begin entries in journal.");
        return continue_in_unreadable_half();
    }
  }

  bool follow_redirection() {
    if (redirected_) {
      log(logging::information, logging::replay, "Encountered second redirection entry - end of replay.");
      return false;
    }
    const std::uint64_t target = redirection_target(journal_, position_);
    if (target + format::redirection_entry::size > journal_.size()) {
      log(logging::information, logging::replay, "Encountered bad index in redirection entry - replay end.");
      return false;
    }
    enter_next_half(target);
    return true;
  }

  bool stale_transaction() {
    log(logging::detail, logging::replay, "Transaction serial: ", result_.serial,
        " current transaction serial: ", begin_serial(journal_, position_));
    log(logging::information, logging::replay, "Found stale transaction in journal - end of replay.");
    return continue_in_unreadable_half();
  }

  // A half that was left for the other one was applied and synced first, so whatever ends its walk, the entry
  // of a transaction that came to nothing or the remains of older ones behind it, hides nothing.
  bool transaction() {
    const TransactionExtent extent = check_transaction(journal_, position_);
    if (extent.state != TransactionExtent::State::complete)
      return continue_in_unreadable_half();
    std::vector<Update> updates;
    for_each_update(journal_, extent, [&updates](const Update& update) { updates.push_back(update); });
    if (!std::ranges::all_of(updates, is_addressable)) {
      log(logging::information, logging::replay, "Invalid CRC in transaction - no more valid entries.");
      return continue_in_unreadable_half();
    }
    for (const Update& update : updates)
      carry_out(update);
    position_ = extent.next();
    return true;
  }

  static bool is_addressable(const Update& update) {
    return update.target <= address_limit() && update.data.size() <= address_limit() - update.target;
  }

  void carry_out(const Update& update) {
    if (update.data.empty())
      return;
    byte_write(update.data, update.target, true);
    result_.highest_byte_end = std::max(result_.highest_byte_end, update.target + update.data.size());
  }

  // The flip that led to the half whose pointer is lost raised the serial by one, as a redirection would.
  bool continue_in_unreadable_half() {
    if (redirected_ || !unreadable_half_.has_value())
      return false;
    const std::uint64_t start = *unreadable_half_;
    if (start >= journal_.size() || entry_kind(journal_, start) != EntryKind::begin)
      return false;
    if (begin_serial(journal_, start) != result_.serial + 1)
      return false;
    if (check_transaction(journal_, start).state != TransactionExtent::State::complete)
      return false;
    enter_next_half(start);
    return true;
  }

  void enter_next_half(std::uint64_t position) {
    position_ = position;
    result_.serial += 1;
    redirected_ = true;
  }

  JournalBytes journal_;
  std::optional<std::uint64_t> unreadable_half_;
  std::uint64_t position_;
  RecoveryResult result_;
  bool redirected_ = false;
};

}  // namespace

RecoveryResult recover(JournalBytes journal, const RecoveryStart& start) {
  return Recovery(journal, start).run();
}

}  // namespace mdb
