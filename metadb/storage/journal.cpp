// The journal's states and the functions that take the edges between them:
//
//   unmapped ──journal_map──▶ mapped ──journal_format──▶ mapped (a fresh header)
//   mapped ──journal_validate: recover, sync the store, flip──▶ running in the half not replayed from
//   running ──journal_flip──▶ running in the other half, empty
//   any ──journal_shutdown──▶ unmapped
//
// Invariants:
//   J1  No byte of the journal reaches the store before a journal sync that followed its writing.
//   J2  A half is entered only when every committed transaction is in the store and the store is synced.
//   J3  No begin entry of the new serial stands in the half that is entered: a serial is never met twice.
//   J4  A new index pointer is durable before the next entry is written.
//   J5  Once a flush has failed nothing is begun, applied or flipped until the database is opened anew.

#include "metadb/storage/journal.h"

#include <algorithm>
#include <optional>

#include "common/errors.h"
#include "common/log.h"
#include "common/text.h"
#include "common/time.h"
#include "journal_meters.h"
#include "journal_state.h"
#include "metadb/storage/backing_store.h"
#include "metadb/storage/block_buffer.h"
#include "metadb/storage/buffer_cache.h"
#include "metadb/storage/mapped_journal.h"
#include "recovery.h"
#include "running_half.h"

namespace mdb {
namespace {

constexpr std::uint64_t sync_interval_seconds = 1;
constexpr std::uint64_t required_free_percent = 25;

JournalState state;

struct ChosenPointer {
  unsigned half;
  format::IndexPointer pointer;
  bool other_is_valid;
};

// The newest valid pointer; pointer 0 wins a tie unless it has never been written.
ChosenPointer choose_index_pointer(JournalBytes journal) {
  const bool valid[] = {format::index_pointer_is_valid(journal, 0),
                        format::index_pointer_is_valid(journal, 1)};
  const format::IndexPointer pointers[] = {format::load_index_pointer(journal, 0),
                                           format::load_index_pointer(journal, 1)};
  const std::uint64_t first_serial = valid[0] ? pointers[0].serial : 0;
  const bool second_is_newer =
      pointers[1].serial > first_serial || (pointers[1].serial == first_serial && pointers[0].jpos == 0);
  if (valid[1] && second_is_newer)
    return {1, pointers[1], valid[0]};
  if (valid[0])
    return {0, pointers[0], valid[1]};
  log(logging::severe, logging::journal, "POSSIBLE DATA LOSS: REPLAY IMPOSSIBLE");
  throw error_need_repair("Both index pointers were invalid");
}

void check_journal_header() {
  if (!journal_is_mapped())
    throw error_internal("No journal mapped");
  if (backing_size() == 0)
    throw error_internal("Invalid backing store length");
  const JournalBytes journal = journal_bytes();
  if (journal.size() < format::journal_header_size ||
      bytes::load_u32(journal, format::journal_header::magic) != format::journal_header::magic_word) {
    throw error_fubar("Journal does not start with a journal header");
  }
  const std::uint32_t version = bytes::load_u32(journal, format::journal_header::version);
  if (version != format::journal_header::current_version) {
    throw error_unsupported(
        text::concat("Journal version ", version, " is unsupported ", "- please upgrade Quenor first"));
  }
}

// The store covers what recovery wrote, in whole blocks. A piece of a block at its end in which nothing was
// written is the remains of a growth; where the disk is still too full to complete it, it is left out, for
// the next growth to write anew.
void extend_store_to(std::uint64_t end) {
  const std::uint64_t size = std::max(backing_size(), end);
  const std::uint64_t past_end = size % block_size();
  backing_set_size(size);
  if (past_end == 0 || backing_has_fixed_size())
    return;
  BlockBuffer zeros(block_size() - past_end);
  std::ranges::fill(zeros.bytes(), std::byte{0});
  try {
    byte_write(zeros.bytes(), size, true);
    backing_set_size(size + zeros.size());
  } catch (const error_io&) {
    const std::uint64_t whole_blocks = size - past_end;
    if (end > whole_blocks)
      throw;
    backing_set_size(whole_blocks);
  }
}

// Nothing that an earlier journal or database left behind may be taken for this one's.
void forget_everything() {
  transactions_forget();
  running_half_enter(0, 0);
  cache_clear();
  state = {};
}

void flip(bool write_redirect) {
  auto& writer = state.writer;
  if (writer.strike_out_stale_begins())
    journal_sync();  // J3
  if (write_redirect)
    writer.write_redirection();
  writer.enter_other_half();
  running_half_enter(writer.serial(), writer.position());
  journal_meters::flips.increment();
  journal_sync();  // J4
  log(logging::detail, logging::journal, "Journal flipped. Now using serial ", writer.serial(), ", index ",
      writer.half(), ", jpos ", writer.position());
}

void require_no_transaction() {
  if (transaction_is_open())
    throw error_internal("Journal flip inside of transaction attempted");
}

}  // namespace

JournalState& journal_state() {
  return state;
}

void throw_if_journal_unusable() {
  if (!journal_is_mapped())
    throw error_internal("No journal mapped");
  if (!state.running)
    throw error_internal("Journal has not been validated");
  throw_if_sync_failed();  // J5
  running_half_throw_if_broken();
}

void journal_format() {
  if (!journal_is_mapped())
    throw error_internal("No journal mapped");
  const auto journal = journal_bytes_to_change();
  if (journal.size() < format::journal_header_size)
    throw error_range("Access beyond end of journal attempted");
  forget_everything();
  bytes::store_u32(journal, format::journal_header::magic, format::journal_header::magic_word);
  bytes::store_u32(journal, format::journal_header::version, format::journal_header::current_version);
  bytes::store_u32(journal, format::journal_header::reserved, 0);
  for (unsigned half = 0; half < format::journal_header::pointer_count; ++half) {
    format::store_index_pointer(journal, half, {});
  }
  journal_sync();
}

void journal_validate() {
  check_journal_header();
  forget_everything();
  const JournalBytes journal = journal_bytes();
  const ChosenPointer chosen = choose_index_pointer(journal);
  log(logging::detail, logging::replay, "Starting replay at journal offset ", chosen.pointer.jpos);
  RecoveryStart start{chosen.pointer, std::nullopt};
  if (!chosen.other_is_valid) {
    start.unreadable_half = format::JournalGeometry{journal.size()}.first_entry(1 - chosen.half);
  }
  journal_sync();  // J1: whoever wrote the entries may not have
  const RecoveryResult recovered = recover(journal, start);
  extend_store_to(recovered.highest_byte_end);
  backing_sync();  // J2
  state.writer.resume(recovered.serial, chosen.half);
  flip(false);
  state.running = true;
}

void journal_shutdown() {
  try {
    journal_unmap();
  } catch (...) {
    if (!journal_is_mapped())
      forget_everything();
    throw;
  }
  forget_everything();
  log(logging::information, logging::journal, "Journal in sync. Ready for shutdown.");
}

void journal_abandon() {
  journal_drop();
  forget_everything();
}

std::uint32_t journal_free() {
  throw_if_journal_unusable();
  return state.writer.free();
}

void journal_flip(bool write_redirect) {
  require_no_transaction();
  sync_apply_and_flip(write_redirect);
}

void sync_apply_and_flip(bool write_redirect) {
  throw_if_journal_unusable();
  journal_start_sync();
  running_half_check();       // meanwhile
  journal_sync_if_written();  // J1
  running_half_apply();
  backing_sync();  // J2
  flip(write_redirect);
}

void sync_and_apply_when_due(bool at_once) {
  const std::uint64_t now = timing::monotonic_seconds();
  if (!at_once && now < state.last_sync_second + sync_interval_seconds)
    return;
  state.last_sync_second = now;
  journal_sync();
  running_half_apply();
}

void journal_checkpoint() {
  require_no_transaction();
  const std::uint32_t free = journal_free();
  const std::uint64_t half_length = journal_bytes().size() / 2;
  log(logging::detail, logging::journal, "Journal free: ", free,
      ", fill percentage: ", (half_length - free) * 100 / half_length);
  // 32-bit on purpose: with halves above 42 MB the product wraps, and the flips that follow from it are part
  // of how existing journals are written.
  const std::uint32_t scaled_free = free * 100U;
  if (scaled_free >= half_length * required_free_percent) {
    sync_and_apply_when_due(false);
    return;
  }
  log(logging::information, logging::journal, "Checkpoint initiated because of semi-full log");
  journal_flip(false);
}

}  // namespace mdb
