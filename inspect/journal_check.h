// The journal: its header, its two halves, and what they would change in the database.

#pragma once

#include <vector>

#include "file_image.h"
#include "inspect/facts.h"
#include "inspect/report.h"
#include "mdb_header_check.h"

namespace inspect {

// Checks the journal, fills the facts that come from its bytes, and returns the updates that opening the
// database would carry out, in their order: those of the complete transactions from the newest half on.
std::vector<Update> check_journal(ByteView journal, const MdbLayout& layout, const Wanted& wanted,
                                  JournalFacts& facts, Report& report);

}  // namespace inspect
