// Inspecting a database pair without changing it: no lock is taken, nothing is written, and the journal is
// carried out in memory only.

#pragma once

#include <optional>
#include <string>
#include <vector>

#include "inspect/facts.h"
#include "inspect/report.h"

namespace inspect {

enum class Verdict : int { sound = 0, damaged = 1, not_a_pair = 2 };

struct Inspection {
  std::optional<TsdbFacts> tsdb;
  std::optional<MdbFacts> mdb;
  std::optional<JournalFacts> journal;
  Report report;
  // A line for each file that is not there or cannot be read.
  std::vector<std::string> unavailable;

  // What the exit status says; damage outweighs a file that is missing. Throws nothing.
  Verdict verdict() const;
};

// Walks everything in the databases of `directory`. The journal is the one at `journal_path` when given, else
// main.odbj in the directory, else the one that the header of main.odb names. Bytes that make no sense are
// findings, never a failure; files that cannot be opened or read are listed as unavailable.
// Keeps the details that are wanted.
// Takes the time of one reading of all files and the memory of a few times the meta database and its journal.
// Throws nothing but what memory throws.
// Another process may have the databases open, but what it changes meanwhile can look like damage.
Inspection inspect_pair(const std::string& directory, const std::optional<std::string>& journal_path,
                        const Wanted& wanted = {});

}  // namespace inspect
