// Finding node records through the indexes.

#pragma once

#include <cstdint>
#include <optional>

#include "metadb/objects/index_search.h"
#include "nodemodel/properties.h"

namespace mdb {

// The record of the node with the id; nothing when there is no such node. In a database without nodes the
// index gets its first leaf. Throws error_internal before index_init(), error_need_repair and error_fubar for
// a damaged index, error_io when reading fails.
std::optional<ObjectReference> node_find(NodeId id);

// The records that a non-unique index holds under one id, in no order that means anything.
// Valid until an index changes.
class NodeCursor {
 public:
  // Throws error_internal when the database has no such index, and what node_find throws.
  NodeCursor(std::uint32_t index, NodeId id);

  bool at_end() const { return !cursor_; }
  // REQUIRES (both): not at_end().
  ObjectReference reference() const { return cursor_->data(); }
  // Throws error_fubar where the index is damaged, error_io when reading fails.
  void next();

 private:
  NodeId id_;
  std::optional<LeafCursor> cursor_;
};

// The records of a node's children. Throws what NodeCursor throws.
NodeCursor node_children(NodeId parent);

}  // namespace mdb
