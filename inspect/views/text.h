// The parts of the text view, and how their lines are put together.

#pragma once

#include <ostream>
#include <string>
#include <string_view>

#include "views/views.h"

namespace inspect {

// "  name          ": what a line of the summary begins with.
std::string label(std::string_view name);

// "1 block", "2 blocks".
std::string counted(std::uint64_t count, std::string_view thing);

// Fills `text` up to `width` with spaces, behind it or in front.
std::string left(std::string text, std::size_t width);
std::string right(std::string text, std::size_t width);

void print_summary(std::ostream& out, const Inspection& inspection);
void print_nodes(std::ostream& out, const MdbFacts& facts);
void print_node(std::ostream& out, const MdbFacts& facts, NodeKey id);
void print_chains(std::ostream& out, const TsdbFacts& facts);
void print_journal(std::ostream& out, const JournalFacts& facts, const MdbFacts& mdb);
void print_indexes(std::ostream& out, const MdbFacts& facts);

}  // namespace inspect
