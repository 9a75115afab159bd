// The parts of the JSON view, each a value. The page has some of them inside.

#pragma once

#include "views/json_writer.h"
#include "views/views.h"

namespace inspect {

// The members that every object begins with: directory, verdict, counts.
void write_verdict(JsonWriter& json, const std::string& directory, const Inspection& inspection);
void write_summary(JsonWriter& json, const Inspection& inspection);
// No more than `most` of the findings.
void write_findings(JsonWriter& json, const Report& report, std::size_t most);
void write_chains(JsonWriter& json, const TsdbFacts& facts);
void write_indexes(JsonWriter& json, const MdbFacts& facts);
void write_nodes(JsonWriter& json, const MdbFacts& facts, const std::optional<NodeKey>& only);
void write_journal(JsonWriter& json, const JournalFacts& facts, const MdbFacts& mdb);

}  // namespace inspect
