// What the views call the things in the files, and texts from the files made fit to be shown.

#pragma once

#include <ostream>
#include <string>
#include <string_view>

#include "inspect/facts.h"
#include "inspect/inspection.h"

namespace inspect {

std::string_view name_of(ChainState state);
std::string_view name_of(TransactionFate fate);
std::string_view name_of(HalfEnd end);
std::string_view name_of(Verdict verdict);

// By the kind's number, as in the chain table.
std::string_view chain_kind_name(std::size_t kind);
// What the JSON view calls a class of blocks; empty for a byte that is none.
std::string_view block_class_key(std::size_t class_byte);
// Empty for a number that is none.
std::string_view node_type_text(std::optional<std::uint32_t> type);
// The text of the name property; empty without one.
std::string_view node_name(const NodeFacts& node);

// `bytes` with everything that could confuse a terminal as \xNN.
std::string printable(std::string_view bytes);

// A JSON string, quotes included. Bytes that are no UTF-8 become U+FFFD; "<" is escaped, so that the text may
// stand in a page.
void write_json_string(std::ostream& out, std::string_view bytes);

std::string hex(const std::vector<std::byte>& bytes);

}  // namespace inspect
