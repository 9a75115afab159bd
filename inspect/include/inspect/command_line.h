// The program quenor-dbinfo, but for its entry point.

#pragma once

#include <ostream>
#include <span>

namespace inspect {

// Runs the program with the words after its name and returns its exit status: 0 for databases that are
// sound (and for the help), 1 for damage, 2 for files that are missing or unreadable and for wrong arguments,
// 3 for a node that is not there, 4 for output that cannot be written.
// The words and both streams stay the caller's. Changes no file but the page that --report names, which is
// new and is there whole or, unless an interrupt ends the process, not at all. Throws nothing but what memory
// throws.
int run(std::span<const char* const> words, std::ostream& out, std::ostream& err);

}  // namespace inspect
