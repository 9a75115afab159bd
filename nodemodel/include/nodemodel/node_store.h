// Writing and erasing node records. The indexes follow in the same transaction.

#pragma once

#include "metadb/objects/reference.h"

namespace mdb {

// Stores what the serialization cache holds as the record of a node: a new one for the null reference,
// else over the record named. Returns where the record is now, which may be elsewhere; the old reference
// is void then. Becomes durable with the journal's next sync, within a second or so of further work.
//
// After a failure the node and all index entries are as before.
// Throws error_index_conflict for an id that is taken, error_internal for an indexed property whose index
// the database does not have, error_dbnospace, and what object_store throws.
ObjectReference node_store(ObjectReference reference);

// Removes the record and all its index entries. Its children stay. Becomes durable as a stored one does.
// After a failure everything is as before.
// Throws error_nullobj for the null reference, error_need_repair when no record starts there, error_fubar
// when an index lacks its entry, and what the journal throws.
void node_erase(ObjectReference reference);

}  // namespace mdb
