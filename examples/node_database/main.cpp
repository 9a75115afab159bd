// Makes a pair of databases in an empty directory, keeps a small tree of nodes and a time series in them, and
// shows that all of it is there when they are opened again:
//   node_database DIRECTORY

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "common/errors.h"
#include "common/log.h"
#include "common/meter_report.h"
#include "inspect/inspection.h"
#include "metadb/objects/database.h"
#include "metadb/objects/indexes.h"
#include "metadb/objects/objects.h"
#include "metadb/storage/backing_store.h"
#include "metadb/storage/create_mdb.h"
#include "metadb/storage/journal.h"
#include "nodemodel/node_lookup.h"
#include "nodemodel/node_store.h"
#include "nodemodel/node_types.h"
#include "nodemodel/properties.h"
#include "nodemodel/record_reader.h"
#include "nodemodel/serialization_cache.h"
#include "platform/platform.h"
#include "timeseries/create_tsdb.h"
#include "timeseries/levels.h"

namespace {

using dbcache::node_type_t;

// Properties have numbers; those below 4 and the name are the library's, the rest is the program's business.
constexpr std::uint32_t time_series = 2601;

constexpr mdb::NodeId no_node = {0, 0};
constexpr mdb::NodeId root = {0, 1};
constexpr mdb::NodeId berlin = {0, 10};
constexpr mdb::NodeId oslo = {0, 11};
constexpr mdb::NodeId web_server = {0, 20};
constexpr mdb::NodeId old_server = {0, 21};
constexpr mdb::NodeId latency = {0, 30};

struct Failure {
  std::string text;
};

// The libraries open files that are there and leave it to the program how they are made.
void make_zero_file(const std::string& path, std::uint64_t size_bytes) {
  static constexpr std::array<std::byte, 65'536> zeros{};
  auto made = platform::system().create_new(path);
  if (!made.ok())
    throw Failure{"Cannot create " + path};
  for (std::uint64_t position = 0; position < size_bytes;) {
    const auto length =
        static_cast<std::size_t>(std::min<std::uint64_t>(zeros.size(), size_bytes - position));
    const auto written = made.value()->write_at(position, std::span(zeros).first(length));
    if (!written.ok() || written.value() == 0)
      throw Failure{"Cannot write to " + path};
    position += written.value();
  }
  if (!made.value()->close().ok() || !platform::system().sync_directory_of(path).ok())
    throw Failure{"Cannot keep " + path};
}

// All of it is on the medium afterwards.
void close_mdb() {
  mdb::journal_shutdown();
  mdb::backing_sync();
  mdb::mdb_close();
}

void create_databases(const std::string& directory) {
  mdb::create_mdb({.path = directory + "/main.odb",
                   .journal_path = directory + "/main.odbj",
                   .journal_blocks = (4U << 20) / mdb::new_mdb_block_bytes,
                   .make_database = make_zero_file,
                   .make_journal = make_zero_file});
  close_mdb();
  tsdb::create_tsdb({.path = directory + "/main.tsdb",
                     .block_size = 4096,
                     .chains = 2,
                     .initial_checks = 1,
                     .create_file = make_zero_file});
}

// Replays the journal first, when the last program did not come to close it.
void open_mdb(const std::string& directory) {
  mdb::mdb_open(directory + "/main.odb");
  mdb::node_model_init();
  mdb::index_init();
}

// Starts a record; store() ends it. What stands between the two adds the properties of a kind of node.
void begin_record(mdb::NodeId id, mdb::NodeId parent, node_type_t type, const std::string& name) {
  mdb::clear_cache();
  mdb::add_property(mdb::PropertyNodeId(mdb::property_id::node_id, id));
  mdb::add_property(mdb::PropertyNodeId(mdb::property_id::parent_id, parent));
  mdb::add_property(mdb::PropertyEnum<node_type_t>(mdb::property_id::node_type, type));
  mdb::add_property(mdb::PropertyString(mdb::property_id::name, name));
}

mdb::ObjectReference find(mdb::NodeId id) {
  const auto found = mdb::node_find(id);
  if (!found)
    throw Failure{"A node is missing"};
  return *found;
}

void store_new(mdb::NodeId id, mdb::NodeId parent, node_type_t type, const std::string& name) {
  begin_record(id, parent, type, name);
  mdb::node_store(mdb::ObjectReference{});
}

void fill_databases() {
  store_new(root, no_node, node_type_t::domain, "Root domain");
  store_new(berlin, root, node_type_t::domain, "Berlin");
  store_new(oslo, root, node_type_t::domain, "Oslo");
  store_new(web_server, berlin, node_type_t::host, "Web server");
  store_new(old_server, berlin, node_type_t::host, "Old server");

  // A day of minutes and a year of hours; durable before its number is known.
  const std::int32_t series = tsdb::allocate_described_ts(
      {.datatype = 1,
       .levels = {{.entry_count = 1'440, .parameter = 60}, {.entry_count = 8'760, .parameter = 3'600}}});
  begin_record(latency, web_server, node_type_t::net_multi_check, "Latency");
  mdb::add_property(
      mdb::PropertySomething32<std::uint32_t, 8>(time_series, static_cast<std::uint32_t>(series)));
  mdb::node_store(mdb::ObjectReference{});
}

void move_and_delete() {
  // A record is written whole: the node goes to Oslo because its new record says so.
  begin_record(web_server, oslo, node_type_t::host, "Web server");
  mdb::node_store(find(web_server));
  mdb::node_erase(find(old_server));
}

// The node's line and, further in, those of its children.
void print_tree(std::ostream& out, mdb::ObjectReference reference, const std::string& indentation) {
  mdb::PropertyNodeId id;
  mdb::PropertyString name;
  mdb::PropertyEnum<node_type_t> type;
  const mdb::ObjectHandle record = mdb::object_load(reference);
  mdb::for_each_entry(record, [&](const mdb::RecordEntry& entry) {
    switch (entry.property_id()) {
      case mdb::property_id::node_id:
        return entry.read_into(id);
      case mdb::property_id::node_type:
        return entry.read_into(type);
      case mdb::property_id::name:
        return entry.read_into(name);
      default:
        return;
    }
  });
  out << indentation << name.value() << " (" << dbcache::node_type_name(type.value()) << ")\n";
  // A cursor lasts until an index changes; nothing changes one here.
  for (auto child = mdb::node_children(id.value()); !child.at_end(); child.next())
    print_tree(out, child.reference(), indentation + "  ");
}

std::string tree() {
  std::ostringstream text;
  print_tree(text, find(root), "");
  return text.str();
}

void run(const std::string& directory) {
  create_databases(directory);
  open_mdb(directory);
  fill_databases();
  std::cout << "Stored:\n" << tree();
  move_and_delete();
  const std::string before = tree();
  std::cout << meter::report_as_table();
  close_mdb();
  tsdb::tsdb_close();

  open_mdb(directory);
  const std::string after = tree();
  std::cout << "Opened again:\n" << after;
  close_mdb();
  if (after != before)
    throw Failure{"The tree has changed"};

  const auto found = inspect::inspect_pair(directory, std::nullopt);
  if (found.verdict() != inspect::Verdict::sound || !found.tsdb)
    throw Failure{"The databases are damaged"};
  std::cout << "Time series: " << found.tsdb->series_count << '\n';
}

// What the libraries have to say is of no interest here; warnings are.
void log_warnings(logging::Level level, logging::Area, std::string_view text) {
  if (level >= logging::warning)
    std::cerr << text << '\n';
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "Usage: node_database DIRECTORY\n";
    return 2;
  }
  logging::set_sink(log_warnings);
  try {
    run(argv[1]);
    return 0;
  } catch (const error::Exception& failure) {
    std::cerr << failure.full_text() << '\n';
  } catch (const Failure& failure) {
    std::cerr << failure.text << '\n';
  }
  return 1;
}
