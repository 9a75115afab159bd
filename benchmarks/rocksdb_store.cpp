#include <rocksdb/cache.h>
#include <rocksdb/db.h>
#include <rocksdb/filter_policy.h>
#include <rocksdb/table.h>

#include <bit>
#include <cstring>
#include <stdexcept>

#include "store.h"

namespace bench {
namespace {

void check(const rocksdb::Status& status) {
  if (!status.ok())
    throw std::runtime_error(status.ToString());
}

// Big-endian, so that keys order as numbers; after a letter that tells records from children.
std::string key(char kind, std::uint64_t first) {
  std::string bytes(9, kind);
  for (std::size_t i = 0; i < 8; ++i)
    bytes[1 + i] = static_cast<char>(first >> (56 - 8 * i));
  return bytes;
}
std::string record_key(std::uint64_t id) {
  return key('r', id);
}
std::string child_key(std::uint64_t parent, std::uint64_t id) {
  return key('c', parent) + record_key(id);
}

// The parent's id, then the text.
std::string record(std::uint64_t parent, std::string_view text) {
  std::string bytes(sizeof parent, '\0');
  std::memcpy(bytes.data(), &parent, sizeof parent);
  return bytes.append(text);
}
std::uint64_t parent_in(std::string_view record) {
  std::uint64_t parent;
  std::memcpy(&parent, record.data(), sizeof parent);
  return parent;
}
std::string_view text_in(std::string_view record) {
  return record.substr(sizeof(std::uint64_t));
}

class RocksdbStore final : public Store {
 public:
  explicit RocksdbStore(const StoreSettings& settings) {
    rocksdb::BlockBasedTableOptions tables;
    tables.block_cache = rocksdb::NewLRUCache(settings.cache_bytes);
    tables.filter_policy.reset(rocksdb::NewBloomFilterPolicy(10));
    rocksdb::Options options;
    options.create_if_missing = true;
    options.table_factory.reset(rocksdb::NewBlockBasedTableFactory(tables));
    rocksdb::DB* opened = nullptr;
    check(rocksdb::DB::Open(options, settings.directory / "nodes.rocks", &opened));
    database_.reset(opened);
    write_.sync = settings.synchronous;
  }

  void store(const Node& node) override {
    rocksdb::WriteBatch batch;
    check(batch.Put(record_key(node.id), record(node.parent, node.text)));
    check(batch.Put(child_key(node.parent, node.id), {}));
    check(database_->Write(write_, &batch));
  }
  std::uint64_t get(std::uint64_t id) override { return folded(text_in(read(id))); }
  std::uint64_t children(std::uint64_t parent) override {
    const std::string prefix = key('c', parent);
    std::uint64_t sum = 0;
    const std::unique_ptr<rocksdb::Iterator> iterator(database_->NewIterator({}));
    for (iterator->Seek(prefix); iterator->Valid() && iterator->key().starts_with(prefix); iterator->Next()) {
      std::uint64_t id;
      std::memcpy(&id, iterator->key().data() + prefix.size() + 1, sizeof id);
      sum += __builtin_bswap64(id);
    }
    return sum;
  }
  void re_parent(std::uint64_t id, std::uint64_t parent) override {
    const std::string old = read(id);
    rocksdb::WriteBatch batch;
    check(batch.Delete(child_key(parent_in(old), id)));
    check(batch.Put(child_key(parent, id), {}));
    check(batch.Put(record_key(id), record(parent, text_in(old))));
    check(database_->Write(write_, &batch));
  }
  void rewrite(const Node& node) override {
    check(database_->Put(write_, record_key(node.id), record(parent_in(read(node.id)), node.text)));
  }
  void free(std::uint64_t id) override {
    rocksdb::WriteBatch batch;
    check(batch.Delete(child_key(parent_in(read(id)), id)));
    check(batch.Delete(record_key(id)));
    check(database_->Write(write_, &batch));
  }
  void sync() override { check(database_->SyncWAL()); }

 private:
  const std::string& read(std::uint64_t id) {
    check(database_->Get({}, record_key(id), &read_));
    return read_;
  }

  std::unique_ptr<rocksdb::DB> database_;
  rocksdb::WriteOptions write_;
  std::string read_;
};

}  // namespace

std::unique_ptr<Store> open_rocksdb(const StoreSettings& settings) {
  return std::make_unique<RocksdbStore>(settings);
}

}  // namespace bench
