// How records and index entries point at an object.

#pragma once

#include <cstdint>

namespace mdb {

struct ObjectReference {
  static constexpr std::uint32_t null_offset = 0xFFFF'FFFF;

  std::uint32_t block = 0;
  std::uint32_t offset = null_offset;

  bool is_null() const { return offset == null_offset; }
  bool operator==(const ObjectReference&) const = default;
};

}  // namespace mdb
