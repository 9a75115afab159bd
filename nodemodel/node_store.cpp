#include "nodemodel/node_store.h"

#include <algorithm>

#include "index_upkeep.h"
#include "metadb/objects/objects.h"
#include "metadb/storage/journal.h"
#include "nodemodel/serialization_cache.h"

namespace mdb {

namespace {

class CacheWriter : public RecordWriter {
 public:
  std::uint32_t length() const override { return cache_length(); }

  void write(ObjectHandle& object, const ObjectHandle* old) override {
    std::ranges::copy(cache_bytes(), object_record(object).begin());
    const IndexedRecord none = {object.reference(), {}};
    update_indexes(old != nullptr ? indexed_record(*old) : none, indexed_record(object));
  }
};

}  // namespace

ObjectReference node_store(ObjectReference reference) {
  CacheWriter writer;
  return object_store(reference, writer);
}

void node_erase(ObjectReference reference) {
  Transaction transaction;
  ObjectHandle object = object_load(reference);
  update_indexes(indexed_record(object), {reference, {}});
  object_free(object);
  transaction.end();
}

}  // namespace mdb
