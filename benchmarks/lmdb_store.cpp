#include <lmdb.h>

#include <cstring>
#include <optional>
#include <stdexcept>
#include <utility>

#include "measure.h"
#include "store.h"

namespace bench {
namespace {

void check(int code) {
  if (code != MDB_SUCCESS)
    throw std::runtime_error(mdb_strerror(code));
}

MDB_val value_of(std::uint64_t& number) {
  return {sizeof number, &number};
}

// Committed unless it is left by an exception.
class Transaction {
 public:
  Transaction(MDB_env* environment, unsigned flags) {
    check(mdb_txn_begin(environment, nullptr, flags, &transaction_));
  }
  ~Transaction() { mdb_txn_abort(transaction_); }
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;

  MDB_txn* get() { return transaction_; }
  void commit() { check(mdb_txn_commit(std::exchange(transaction_, nullptr))); }

 private:
  MDB_txn* transaction_ = nullptr;
};

// Records by id, and the ids of the children of each parent as sorted duplicates.
class LmdbStore final : public Store {
 public:
  explicit LmdbStore(const StoreSettings& settings) : synchronous_(settings.synchronous) {
    check(mdb_env_create(&environment_));
    check(mdb_env_set_maxdbs(environment_, 2));
    check(mdb_env_set_mapsize(environment_, std::size_t{8} << 30));
    check(mdb_env_open(environment_, settings.directory.c_str(), synchronous_ ? 0 : MDB_NOSYNC, 0600));
    Transaction transaction(environment_, 0);
    check(mdb_dbi_open(transaction.get(), "record", MDB_CREATE | MDB_INTEGERKEY, &records_));
    check(mdb_dbi_open(transaction.get(), "child",
                       MDB_CREATE | MDB_INTEGERKEY | MDB_DUPSORT | MDB_DUPFIXED | MDB_INTEGERDUP,
                       &children_));
    transaction.commit();
  }
  ~LmdbStore() override {
    if (reader_ != nullptr)
      mdb_txn_abort(reader_);
    mdb_env_sync(environment_, 1);
    mdb_env_close(environment_);
  }
  LmdbStore(const LmdbStore&) = delete;
  LmdbStore& operator=(const LmdbStore&) = delete;

  void store(const Node& node) override {
    write([&](MDB_txn* transaction) {
      put_record(transaction, node.id, node.parent, node.text);
      put_child(transaction, node.parent, node.id);
    });
  }
  std::uint64_t get(std::uint64_t id) override {
    const Reading reading(reader());
    return folded(record(reader_, id).substr(sizeof id));
  }
  std::uint64_t children(std::uint64_t parent) override {
    const Reading reading(reader());
    MDB_cursor* cursor = nullptr;
    check(mdb_cursor_open(reader_, children_, &cursor));
    MDB_val key = value_of(parent);
    MDB_val found{};
    std::uint64_t sum = 0;
    for (int code = mdb_cursor_get(cursor, &key, &found, MDB_SET); code == MDB_SUCCESS;
         code = mdb_cursor_get(cursor, &key, &found, MDB_NEXT_DUP)) {
      std::uint64_t id;
      std::memcpy(&id, found.mv_data, sizeof id);
      sum += id;
    }
    mdb_cursor_close(cursor);
    return sum;
  }
  void re_parent(std::uint64_t id, std::uint64_t parent) override {
    write([&](MDB_txn* transaction) {
      const std::string old(record(transaction, id));
      remove_child(transaction, parent_in(old), id);
      put_child(transaction, parent, id);
      put_record(transaction, id, parent, std::string_view(old).substr(sizeof id));
    });
  }
  void rewrite(const Node& node) override {
    write([&](MDB_txn* transaction) {
      put_record(transaction, node.id, parent_in(record(transaction, node.id)), node.text);
    });
  }
  void free(std::uint64_t id) override {
    write([&](MDB_txn* transaction) {
      remove_child(transaction, parent_in(record(transaction, id)), id);
      MDB_val key = value_of(id);
      check(mdb_del(transaction, records_, &key, nullptr));
    });
  }
  void sync() override { check(mdb_env_sync(environment_, 1)); }

 private:
  // The one read transaction, which sees what is committed while it is in use.
  class Reading {
   public:
    explicit Reading(MDB_txn* transaction) : transaction_(transaction) { check(mdb_txn_renew(transaction_)); }
    ~Reading() { mdb_txn_reset(transaction_); }
    Reading(const Reading&) = delete;
    Reading& operator=(const Reading&) = delete;

   private:
    MDB_txn* transaction_;
  };
  MDB_txn* reader() {
    if (reader_ == nullptr) {
      check(mdb_txn_begin(environment_, nullptr, MDB_RDONLY, &reader_));
      mdb_txn_reset(reader_);
    }
    return reader_;
  }

  template <typename Change>
  void write(Change change) {
    Transaction transaction(environment_, 0);
    change(transaction.get());
    transaction.commit();
    if (!synchronous_ && since_sync_->seconds() >= 1) {
      sync();
      since_sync_.emplace();
    }
  }
  std::string_view record(MDB_txn* transaction, std::uint64_t id) {
    MDB_val key = value_of(id);
    MDB_val found{};
    check(mdb_get(transaction, records_, &key, &found));
    return {static_cast<const char*>(found.mv_data), found.mv_size};
  }
  static std::uint64_t parent_in(std::string_view record) {
    std::uint64_t parent;
    std::memcpy(&parent, record.data(), sizeof parent);
    return parent;
  }
  void put_record(MDB_txn* transaction, std::uint64_t id, std::uint64_t parent, std::string_view text) {
    MDB_val key = value_of(id);
    MDB_val value{sizeof parent + text.size(), nullptr};
    check(mdb_put(transaction, records_, &key, &value, MDB_RESERVE));
    std::memcpy(value.mv_data, &parent, sizeof parent);
    std::memcpy(static_cast<char*>(value.mv_data) + sizeof parent, text.data(), text.size());
  }
  void put_child(MDB_txn* transaction, std::uint64_t parent, std::uint64_t id) {
    MDB_val key = value_of(parent);
    MDB_val value = value_of(id);
    check(mdb_put(transaction, children_, &key, &value, 0));
  }
  void remove_child(MDB_txn* transaction, std::uint64_t parent, std::uint64_t id) {
    MDB_val key = value_of(parent);
    MDB_val value = value_of(id);
    check(mdb_del(transaction, children_, &key, &value));
  }

  bool synchronous_;
  MDB_env* environment_ = nullptr;
  MDB_dbi records_ = 0;
  MDB_dbi children_ = 0;
  MDB_txn* reader_ = nullptr;
  std::optional<Clock> since_sync_{std::in_place};
};

}  // namespace

std::unique_ptr<Store> open_lmdb(const StoreSettings& settings) {
  return std::make_unique<LmdbStore>(settings);
}

}  // namespace bench
