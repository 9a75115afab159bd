// What the page's script draws, each part a JSON value whose size does not grow with the databases.

#pragma once

#include "views/json_writer.h"

namespace inspect {

// The markup around the facts.
extern const std::string_view page_before_facts;
extern const std::string_view page_after_facts;

void write_tsdb_blocks(JsonWriter& json, const TsdbFacts& facts);
void write_chain_table(JsonWriter& json, const TsdbFacts& facts);
void write_mdb_blocks(JsonWriter& json, const MdbFacts& facts);
// How many data blocks, index nodes and leaves are how full.
void write_fill(JsonWriter& json, const MdbFacts& facts);
void write_trees(JsonWriter& json, const MdbFacts& facts);
void write_halves(JsonWriter& json, const JournalFacts& facts);
// The upper part of the tree of nodes.
void write_node_outline(JsonWriter& json, const MdbFacts& facts);

}  // namespace inspect
