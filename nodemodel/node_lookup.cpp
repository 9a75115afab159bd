#include "nodemodel/node_lookup.h"

#include "metadb/objects/indexes.h"

namespace mdb {

std::optional<ObjectReference> node_find(NodeId id) {
  return unique_search(node_id_index, id);
}

NodeCursor::NodeCursor(std::uint32_t index, NodeId id) : id_(id), cursor_(nonunique_search(index, id)) {}

void NodeCursor::next() {
  leaf_cursor_next(*cursor_);
  if (cursor_->at_end() || cursor_->key() != id_)
    cursor_.reset();
}

NodeCursor node_children(NodeId parent) {
  return {parent_id_index, parent};
}

}  // namespace mdb
