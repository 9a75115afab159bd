// An object while it is worked on: where it is, and a private copy of its whole block.

#pragma once

#include <cstdint>

#include "metadb/objects/reference.h"
#include "metadb/storage/block_copy.h"

namespace mdb {

struct ObjectHandle {
  std::uint32_t block = 0;
  std::uint32_t offset = 0;
  BlockBuffer data;

  ObjectReference reference() const { return {block, offset}; }
};

}  // namespace mdb
