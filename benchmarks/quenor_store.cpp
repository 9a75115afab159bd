#include "quenor_store.h"

#include <utility>
#include <vector>

#include "bare_file.h"
#include "common/log.h"
#include "measure.h"
#include "metadb/objects/database.h"
#include "metadb/objects/indexes.h"
#include "metadb/objects/objects.h"
#include "metadb/storage/backing_store.h"
#include "metadb/storage/buffer_cache.h"
#include "metadb/storage/journal.h"
#include "metadb/storage/mapped_journal.h"
#include "metadb/storage/mdb_header.h"
#include "nodemodel/node_lookup.h"
#include "nodemodel/node_store.h"
#include "nodemodel/record_reader.h"
#include "nodemodel/serialization_cache.h"

namespace bench {
namespace {

namespace property = mdb::property_id;

std::string mdb_path(const StoreSettings& settings) {
  return settings.directory / "main.odb";
}
std::string journal_path(const StoreSettings& settings) {
  return settings.directory / "main.odbj";
}

class QuenorStore final : public Store {
 public:
  explicit QuenorStore(const StoreSettings& settings) : synchronous_(settings.synchronous) {
    if (!std::filesystem::exists(mdb_path(settings)))
      create_database(settings);
    open_database(settings);
  }
  ~QuenorStore() override { close_database(); }
  QuenorStore(const QuenorStore&) = delete;
  QuenorStore& operator=(const QuenorStore&) = delete;

  void store(const Node& node) override { write(node, {}); }
  std::uint64_t get(std::uint64_t id) override {
    std::uint64_t result = 0;
    mdb::BlockBuffer scratch;
    mdb::for_each_entry(mdb::object_view(found(id), scratch), [&result](const mdb::RecordEntry& entry) {
      if (entry.property_id() == property::name)
        result = folded(text_in(entry));
    });
    return result;
  }
  std::uint64_t children(std::uint64_t parent) override {
    std::uint64_t sum = 0;
    mdb::BlockBuffer scratch;
    for (mdb::NodeCursor child = mdb::node_children(node_id(parent)); !child.at_end(); child.next()) {
      mdb::RecordReader reader(mdb::object_view(child.reference(), scratch));
      sum += number_of(reader.next()->node_id());  // the id is the first of the properties
    }
    return sum;
  }
  void re_parent(std::uint64_t id, std::uint64_t parent) override {
    const mdb::ObjectReference reference = found(id);
    mdb::PropertyString text;
    mdb::BlockBuffer scratch;
    mdb::for_each_entry(mdb::object_view(reference, scratch), [&text](const mdb::RecordEntry& entry) {
      if (entry.property_id() == property::name)
        entry.read_into(text);
    });
    write({id, parent, text.value()}, reference);
  }
  void rewrite(const Node& node) override { write(node, found(node.id)); }
  void free(std::uint64_t id) override {
    if (synchronous_)
      return durably([&] { mdb::node_erase(found(id)); });
    mdb::node_erase(found(id));
  }
  void sync() override { mdb::journal_sync(); }

 private:
  static mdb::ObjectReference found(std::uint64_t id) { return mdb::node_find(node_id(id)).value(); }
  static std::uint64_t number_of(mdb::NodeId id) { return std::uint64_t{id.k0} << 32 | id.k1; }
  static std::string_view text_in(const mdb::RecordEntry& entry) {
    const auto value = entry.bytes().subspan(mdb::format::property_entry::value);
    return {reinterpret_cast<const char*>(value.data()), value.size()};
  }

  template <typename Change>
  static void durably(Change change) {
    mdb::Transaction transaction;
    change();
    transaction.end(false);
  }
  void write(const Node& node, mdb::ObjectReference reference) const {
    mdb::clear_cache();
    mdb::add_property(mdb::PropertyNodeId(property::node_id, node_id(node.id)));
    mdb::add_property(mdb::PropertyNodeId(property::parent_id, node_id(node.parent)));
    mdb::add_property(mdb::PropertyString(property::name, std::string(node.text)));
    if (synchronous_) {
      durably([&] { mdb::node_store(reference); });
    } else {
      mdb::node_store(reference);
    }
  }

  bool synchronous_;
};

}  // namespace

void create_database(const StoreSettings& settings) {
  constexpr std::uint64_t block_count = first_data_block + 128;
  BareFile(mdb_path(settings), O_EXCL).write_zeros(0, block_count * block_bytes, created_at_once);
  BareFile(journal_path(settings), O_EXCL).write_zeros(0, settings.journal_bytes, created_at_once);
  mdb::backing_open(mdb_path(settings));
  mdb::mdb_write_header({.block_size = block_bytes,
                         .journal_placement = mdb::JournalPlacement::external,
                         .journal_path = journal_path(settings),
                         .journal_first_block = 0,
                         .journal_block_count = 0,
                         .index_roots = {first_data_block, first_data_block + 1},
                         .bitmap_first = 1,
                         .data_first = first_data_block});
  mdb::journal_map(journal_path(settings), 0, settings.journal_bytes, true);
  mdb::journal_format();
  close_database();
}

void open_database(const StoreSettings& settings) {
  mdb::log_mask = logging::severe;
  mdb::cache_set_limit(static_cast<std::uint32_t>(settings.cache_bytes / block_bytes));
  mdb::mdb_open(mdb_path(settings));
  mdb::node_model_init();
  mdb::index_init();
}

void close_database() {
  mdb::journal_shutdown();
  mdb::backing_sync();
  mdb::mdb_close();
}

std::unique_ptr<Store> open_quenor(const StoreSettings& settings) {
  return std::make_unique<QuenorStore>(settings);
}

}  // namespace bench
