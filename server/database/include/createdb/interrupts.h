// What the tool says when a run is interrupted, which ends it at once.

#pragma once

#include <string>

namespace createdb {

// To be called when a run begins: from now on an interrupt names the files that the run has made.
void begin_interruptible_run();

// Adds a file to those that an interrupt leaves behind. REQUIRES: interrupts are held, and were when the file
// was made: nothing that is left behind stays unnamed, and nothing else is named.
void note_file_made(const std::string& path);

}  // namespace createdb
