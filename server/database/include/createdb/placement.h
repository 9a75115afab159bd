// Where databases can be placed.

#pragma once

#include <string>

#include "createdb/settings.h"

namespace createdb {

// Tells whether `path`, links followed, can hold a database. Says on standard output why it cannot.
Placement check_placement(const std::string& path);

}  // namespace createdb
