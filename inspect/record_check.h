// Node records: their entries, and what the indexes ask of them.

#pragma once

#include <array>
#include <cstdint>
#include <optional>

#include "file_image.h"
#include "inspect/facts.h"
#include "inspect/report.h"
#include "tree_check.h"

namespace inspect {

struct Record {
  bool is_whole = false;  // the entries could be followed to the end
  // The key under which each index has the record; nothing for those that do not have it.
  std::array<std::optional<NodeKey>, honoured_index_count> keys{};
  std::optional<std::uint32_t> node_type{};
  std::vector<PropertyFacts> properties{};  // when wanted
};

// What the values of a type code are called; empty for a code that is none.
std::string_view property_type_name(std::uint32_t code);

// Decodes the record of the object at `object` and reports what is wrong with its entries.
// `bytes` are the object's, header included.
Record check_record(ObjectPlace object, ByteView bytes, bool keep_properties, Report& report);

}  // namespace inspect
