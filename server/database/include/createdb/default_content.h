// What a server needs to find in new databases.

#pragma once

namespace createdb {

enum class Administrator { write, omit };

// Writes the first record, the root domain and, when asked, the administrator with a time series of its
// own. Throws what the databases throw; records written before that stay.
// REQUIRES: both databases are open and hold no nodes.
void write_default_content(Administrator administrator);

}  // namespace createdb
