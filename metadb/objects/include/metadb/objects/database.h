// Opening and closing of a whole meta database: store, header, journal, space allocator.

#pragma once

#include <optional>
#include <string>

namespace mdb {

// Opens the store, checks its header, attaches, validates and replays the journal (at `journal_path` when
// given, else where the header says) and loads the allocation map. The indexes are initialised by the
// caller. A database that is still open is dropped first, as by a death of the process.
//
// When it throws, nothing is left open.
// Throws error_open and other kinds of error_io, error_fubar, error_unsupported, error_need_repair,
// error_consistency and error_internal, as the steps do.
void mdb_open(const std::string& name, const std::optional<std::string>& journal_path = std::nullopt);

// Closes the store and forgets all that is known of the database. Makes nothing durable: an orderly end is
// journal_shutdown(), backing_sync(), mdb_close().
// Throws error_io when the close fails; everything is forgotten then, too.
void mdb_close();

// Registers how the layer above forgets what it keeps of the open database; called whenever one is closed or
// opened. A later call replaces it.
void mdb_set_forget_hook(void (*forget)());

}  // namespace mdb
