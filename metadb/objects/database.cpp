#include "metadb/objects/database.h"

#include "common/errors.h"
#include "live_offsets.h"
#include "metadb/objects/allocator.h"
#include "metadb/storage/backing_store.h"
#include "metadb/storage/journal.h"
#include "metadb/storage/mdb_header.h"

namespace mdb {
namespace {

void (*forget_above)() = nullptr;

// All that is known of the database, the store's file apart.
void forget_database() {
  if (forget_above != nullptr)
    forget_above();
  live_offsets::reset();
  alloc_reset();
  journal_abandon();
  mdb_forget_header();
}

// Leaves nothing open unless the opening is completed.
class OpenAttempt {
 public:
  OpenAttempt() = default;
  ~OpenAttempt() {
    if (!completed_)
      undo();
  }
  OpenAttempt(const OpenAttempt&) = delete;
  OpenAttempt& operator=(const OpenAttempt&) = delete;

  void complete() { completed_ = true; }

 private:
  static void undo() {
    forget_database();
    try {
      if (backing_is_open())
        backing_close();
    } catch (const error::Exception&) {
      // The failure that ended the opening is the one to report.
    }
  }

  bool completed_ = false;
};

}  // namespace

void mdb_open(const std::string& name, const std::optional<std::string>& journal_path) {
  forget_database();
  OpenAttempt attempt;
  backing_open(name);
  mdb_open_header(journal_path);
  journal_validate();
  alloc_map_init(bitmap_first(), data_first() - bitmap_first());
  attempt.complete();
}

void mdb_close() {
  forget_database();
  backing_close();
}

void mdb_set_forget_hook(void (*forget)()) {
  forget_above = forget;
}

}  // namespace mdb
