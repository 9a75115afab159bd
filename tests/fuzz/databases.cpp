#include "databases.h"

#include <algorithm>
#include <string>

#include "common/errors.h"
#include "metadb/objects/index_search.h"
#include "metadb/objects/indexes.h"
#include "metadb/objects/objects.h"
#include "metadb/storage/journal.h"
#include "nodemodel/node_lookup.h"
#include "nodemodel/node_store.h"
#include "nodemodel/record_reader.h"

namespace fuzz {
namespace {

using mdb_test::journal_path;
using mdb_test::mdb_path;

// What is thrown by the databases is an answer like any other; everything else is a fault of theirs.
template <typename Step>
bool succeeds(Step step) {
  try {
    step();
    return true;
  } catch (const error::Exception&) {
    return false;
  }
}

std::uint32_t index_count() {
  return std::min(mdb::index_root_count(), mdb::max_index_count);
}

mdb::ObjectReference node(std::uint32_t number) {
  return mdb::node_find({0, number}).value_or(mdb::ObjectReference{});
}

Bytes record_at(mdb::ObjectReference reference) {
  const mdb::ObjectHandle object = mdb::object_load(reference);
  mdb::for_each_entry(object, [](const mdb::RecordEntry& entry) {
    mdb::PropertyString text;
    mdb::PropertySomething32<std::uint32_t, 1> number;
    succeeds([&] { entry.read_into(text); });
    succeeds([&] { entry.read_into(number); });
    succeeds([&] { (void)entry.node_id(); });
    succeeds([&] { (void)entry.flag(); });
  });
  const auto record = mdb::object_record(object);
  return {record.begin(), record.end()};
}

void read_index(std::uint32_t index, Contents& contents) {
  (void)mdb::index_dump(mdb::index_root(index));
  mdb::SearchPath path;
  auto cursor = mdb::index_search(mdb::index_root(index), {0, 0}, path, mdb::SearchMode::first);
  for (; cursor && !cursor->at_end(); mdb::leaf_cursor_next(*cursor)) {
    contents.is_whole &= succeeds([&] {
      Bytes record = record_at(cursor->data());
      if (index == mdb::node_id_index)
        contents.records.insert_or_assign(cursor->key(), std::move(record));
    });
  }
}

}  // namespace

Files make_files(const mdb_test::MdbShape& shape) {
  Computer computer;
  support::make_pair(computer.sim, shape, {}, node_count - unapplied_nodes);
  open_database();
  for (std::uint32_t number = node_count - unapplied_nodes + 1; number <= node_count; ++number)
    support::store_server_node(number, {number / 10, "node " + std::to_string(number)});
  support::drop_databases();
  Files files;
  for (const char* path : {support::tsdb_path, mdb_path, journal_path}) {
    if (computer.sim.has_file(path))
      files[path] = computer.sim.contents(path);
  }
  return files;
}

void open_database() {
  support::open_nodes(mdb_path, journal_path);
}

Contents read_everything() {
  Contents contents;
  for (std::uint32_t index = 0; index < index_count(); ++index)
    contents.is_whole &= succeeds([&] { read_index(index, contents); });
  for (const auto& [key, record] : contents.records) {
    contents.is_whole &= succeeds([&, id = key] {
      contents.is_whole &= mdb::node_find(id).has_value();
      for (auto child = mdb::node_children(id); !child.at_end(); child.next())
        (void)child.reference();
    });
  }
  return contents;
}

void use_database() {
  constexpr std::uint32_t new_number = 77;
  constexpr std::uint32_t known_number = 5;
  if (!succeeds(open_database))
    return;
  (void)read_everything();
  succeeds([] {
    const mdb::ObjectReference reference = support::store_server_node(new_number, {7, "new"});
    support::store_server_node(new_number + 1, {8, "another name"}, reference);
  });
  succeeds([] { support::store_server_node(known_number * 8, {4, "longer"}, node(known_number)); });
  succeeds([] { mdb::node_erase(node(known_number - 1)); });
  succeeds([] { mdb::journal_flip(true); });
  succeeds([] {
    mdb_test::close_mdb();
    open_database();
  });
}

}  // namespace fuzz
