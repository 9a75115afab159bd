// What properties are called, for people: the records know numbers alone.

#pragma once

#include <cstdint>
#include <string_view>

#include "nodemodel/record_format.h"

namespace mdb {

// The name of a property; empty for one whose meaning is the server's business.
constexpr std::string_view property_name(std::uint32_t id) {
  switch (id) {
    case property_id::node_id:
      return "node ID";
    case property_id::parent_id:
      return "parent ID";
    case property_id::node_type:
      return "node type";
    case property_id::name:
      return "name";
    case 900:
      return "description";
    case 901:
      return "password digest";
    case 2601:
      return "time series";
    default:
      return {};
  }
}

}  // namespace mdb
