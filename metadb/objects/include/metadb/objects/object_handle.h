// An object while it is worked on: where it is, and a private copy of its whole block; or a look at one.

#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "metadb/objects/reference.h"
#include "metadb/storage/block_copy.h"

namespace mdb {

// A look at an object in its whole block, of which it owns nothing. Valid as long as the block's bytes are.
struct ObjectView {
  std::uint32_t block = 0;
  std::uint32_t offset = 0;
  std::span<const std::byte> data;

  ObjectReference reference() const { return {block, offset}; }
};

struct ObjectHandle {
  std::uint32_t block = 0;
  std::uint32_t offset = 0;
  BlockBuffer data;

  ObjectReference reference() const { return {block, offset}; }
  // Valid as long as the handle keeps its copy.
  // NOLINTNEXTLINE(google-explicit-constructor): who may change an object may look at it, as with spans
  operator ObjectView() const { return {block, offset, data.bytes()}; }
};

}  // namespace mdb
