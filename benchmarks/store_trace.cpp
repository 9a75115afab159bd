#include "store_trace.h"

#include "journal_walk.h"
#include "metadb/storage/mapped_journal.h"

namespace bench {

TraceRecorder::TraceRecorder() {
  enter_newest_half();
  follow();
  trace_ = {};
}

void TraceRecorder::end_operation() {
  follow();
  enter_newest_half();
  follow();
  trace_.end_operation();
}

void TraceRecorder::enter_newest_half() {
  const auto journal = mdb::journal_bytes();
  for (unsigned half = 0; half < mdb::format::journal_header::pointer_count; ++half) {
    const auto pointer = mdb::format::load_index_pointer(journal, half);
    if (pointer.serial <= serial_)
      continue;
    serial_ = pointer.serial;
    position_ = pointer.jpos;
  }
}

void TraceRecorder::follow() {
  const auto journal = mdb::journal_bytes();
  while (mdb::entry_kind(journal, position_) == mdb::EntryKind::begin &&
         mdb::begin_serial(journal, position_) == serial_) {
    const auto transaction = mdb::check_transaction(journal, position_);
    if (transaction.state != mdb::TransactionExtent::State::complete)
      return;  // the begin of a transaction that changed nothing, where the next one will stand
    mdb::for_each_update(journal, transaction, [this](const mdb::Update& update) {
      trace_.add({update.target, static_cast<std::uint32_t>(update.data.size())});
    });
    trace_.end_transaction();
    position_ = transaction.next();
  }
}

}  // namespace bench
