// The steps of the creation, in the order in which they are run. All of them work from creation_settings
// and throw what the two databases throw; what has been made stays when a later step fails.

#pragma once

namespace createdb {

// Makes the meta database's file and its journal, and leaves both open. Turns journal_size into blocks.
void create_mdb();

// Makes the time series database and leaves it open for the default content.
void create_tsdb();

// Brings the journal in sync and closes the meta database; all of it is on the medium afterwards.
void close_mdb();

// Opens the meta database as a server would, replaying its journal.
void reopen_mdb();

}  // namespace createdb
