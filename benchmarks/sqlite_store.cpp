#include <sqlite3.h>

#include <stdexcept>
#include <string>

#include "store.h"

namespace bench {
namespace {

class Statement {
 public:
  Statement(sqlite3* database, const char* text) {
    if (sqlite3_prepare_v3(database, text, -1, SQLITE_PREPARE_PERSISTENT, &statement_, nullptr) != SQLITE_OK)
      throw std::runtime_error(sqlite3_errmsg(database));
  }
  ~Statement() { sqlite3_finalize(statement_); }
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;

  Statement& bind(int place, std::uint64_t id) {
    sqlite3_bind_int64(statement_, place, static_cast<sqlite3_int64>(id));
    return *this;
  }
  Statement& bind(int place, std::string_view text) {
    sqlite3_bind_blob(statement_, place, text.data(), static_cast<int>(text.size()), SQLITE_STATIC);
    return *this;
  }
  // Calls `row(statement)` for each row of the result.
  template <typename Row>
  void run(Row row) {
    int code = sqlite3_step(statement_);
    for (; code == SQLITE_ROW; code = sqlite3_step(statement_))
      row(statement_);
    if (code != SQLITE_DONE)
      throw std::runtime_error(sqlite3_errstr(code));
    sqlite3_reset(statement_);
  }
  void run() {
    run([](sqlite3_stmt*) {});
  }

 private:
  sqlite3_stmt* statement_ = nullptr;
};

class Database {
 public:
  Database(const StoreSettings& settings, const char* locking) {
    const std::string path = settings.directory / "nodes.sqlite";
    if (sqlite3_open(path.c_str(), &database_) != SQLITE_OK)
      throw std::runtime_error("Cannot open " + path);
    execute(locking);
    execute("PRAGMA page_size=8192");
    execute("PRAGMA journal_mode=WAL");
    execute(settings.synchronous ? "PRAGMA synchronous=FULL" : "PRAGMA synchronous=NORMAL");
    execute(("PRAGMA cache_size=-" + std::to_string(settings.cache_bytes / 1024)).c_str());
    execute(
        "CREATE TABLE IF NOT EXISTS node(id INTEGER NOT NULL, parent INTEGER NOT NULL, text BLOB NOT NULL)");
    execute("CREATE UNIQUE INDEX IF NOT EXISTS by_id ON node(id)");
    execute("CREATE INDEX IF NOT EXISTS by_parent ON node(parent)");
  }
  ~Database() { sqlite3_close(database_); }
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  void execute(const char* text) {
    if (sqlite3_exec(database_, text, nullptr, nullptr, nullptr) != SQLITE_OK)
      throw std::runtime_error(sqlite3_errmsg(database_));
  }
  sqlite3* get() { return database_; }
  // All that is committed lies in the log, or in a file that was synced before the log began anew.
  void sync_log() {
    sqlite3_file* log = nullptr;
    if (sqlite3_file_control(database_, "main", SQLITE_FCNTL_JOURNAL_POINTER, static_cast<void*>(&log)) !=
        SQLITE_OK)
      throw std::runtime_error("There is no log");
    if (log->pMethods != nullptr && log->pMethods->xSync(log, SQLITE_SYNC_NORMAL) != SQLITE_OK)
      throw std::runtime_error("Cannot sync the log");
  }

 private:
  sqlite3* database_ = nullptr;
};

class SqliteStore final : public Store {
 public:
  SqliteStore(const StoreSettings& settings, const char* locking) : database_(settings, locking) {}

  void store(const Node& node) override {
    insert_.bind(1, node.id).bind(2, node.parent).bind(3, node.text).run();
  }
  std::uint64_t get(std::uint64_t id) override {
    std::uint64_t result = 0;
    select_.bind(1, id).run([&result](sqlite3_stmt* row) {
      result = folded({static_cast<const char*>(sqlite3_column_blob(row, 0)),
                       static_cast<std::size_t>(sqlite3_column_bytes(row, 0))});
    });
    return result;
  }
  std::uint64_t children(std::uint64_t parent) override {
    std::uint64_t sum = 0;
    children_.bind(1, parent).run(
        [&sum](sqlite3_stmt* row) { sum += static_cast<std::uint64_t>(sqlite3_column_int64(row, 0)); });
    return sum;
  }
  void re_parent(std::uint64_t id, std::uint64_t parent) override { move_.bind(1, parent).bind(2, id).run(); }
  void rewrite(const Node& node) override { rewrite_.bind(1, node.text).bind(2, node.id).run(); }
  void free(std::uint64_t id) override { free_.bind(1, id).run(); }
  void sync() override { database_.sync_log(); }

 private:
  Database database_;
  Statement insert_{database_.get(), "INSERT INTO node VALUES(?,?,?)"};
  Statement select_{database_.get(), "SELECT text FROM node WHERE id=?"};
  Statement children_{database_.get(), "SELECT id FROM node WHERE parent=?"};
  Statement move_{database_.get(), "UPDATE node SET parent=? WHERE id=?"};
  Statement rewrite_{database_.get(), "UPDATE node SET text=? WHERE id=?"};
  Statement free_{database_.get(), "DELETE FROM node WHERE id=?"};
};

}  // namespace

std::unique_ptr<Store> open_sqlite(const StoreSettings& settings) {
  return std::make_unique<SqliteStore>(settings, "PRAGMA locking_mode=NORMAL");
}

std::unique_ptr<Store> open_exclusive_sqlite(const StoreSettings& settings) {
  return std::make_unique<SqliteStore>(settings, "PRAGMA locking_mode=EXCLUSIVE");
}

}  // namespace bench
