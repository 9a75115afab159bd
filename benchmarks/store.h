// A store of nodes as the workloads see it, whatever engine is behind it.

#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

namespace bench {

struct Node {
  std::uint64_t id;
  std::uint64_t parent;
  std::string_view text;
};

// Every change is a transaction of its own. Closed, in order, by its destructor.
class Store {
 public:
  virtual ~Store() = default;

  virtual void store(const Node& node) = 0;
  // Looks at the whole text of a node and returns a number made of it.
  virtual std::uint64_t get(std::uint64_t id) = 0;
  // Looks at every child of a node and returns the sum of their ids.
  virtual std::uint64_t children(std::uint64_t parent) = 0;
  virtual void re_parent(std::uint64_t id, std::uint64_t parent) = 0;
  // Gives a node that exists a new text.
  virtual void rewrite(const Node& node) = 0;
  virtual void free(std::uint64_t id) = 0;
  // Makes everything durable.
  virtual void sync() = 0;
};

struct StoreSettings {
  std::filesystem::path directory = {};  // empty for a new store
  bool synchronous = false;              // each transaction on the medium before its end returns
  std::uint64_t cache_bytes = std::uint64_t{64} << 20;
  std::uint64_t journal_bytes = std::uint64_t{8} << 20;  // of this system alone
};

using OpenStore = std::unique_ptr<Store> (*)(const StoreSettings& settings);

struct Engine {
  std::string_view name;
  std::string_view lazy_mode;  // durability without and with `synchronous`
  std::string_view synchronous_mode;
  OpenStore open;
};

std::unique_ptr<Store> open_quenor(const StoreSettings& settings);
std::unique_ptr<Store> open_sqlite(const StoreSettings& settings);
// Locks the database once, as nobody else may open it, and not for each statement.
std::unique_ptr<Store> open_exclusive_sqlite(const StoreSettings& settings);
std::unique_ptr<Store> open_lmdb(const StoreSettings& settings);
std::unique_ptr<Store> open_rocksdb(const StoreSettings& settings);

inline constexpr Engine sqlite = {"SQLite", "WAL, NORMAL", "WAL, FULL", open_sqlite};
inline constexpr Engine exclusive_sqlite = {"SQLite", "WAL, NORMAL, EXCLUSIVE", "WAL, FULL, EXCLUSIVE",
                                            open_exclusive_sqlite};
inline constexpr Engine lmdb = {"LMDB", "NOSYNC, synced once a second", "synchronous", open_lmdb};
inline constexpr Engine rocksdb = {"RocksDB", "WAL, not synced", "WAL, synced", open_rocksdb};

// A number of all the bytes: what reads them cannot leave any out.
std::uint64_t folded(std::string_view bytes);

}  // namespace bench
