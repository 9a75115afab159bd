// The part of a server that lives on the storage:
//
//   storage_writer work DIRECTORY SEED FIRST COUNT   the transactions from number FIRST on, then the
//                                                    orderly end
//   storage_writer list DIRECTORY                    the nodes that the meta database holds
//   storage_writer fill DIRECTORY                    what a small server has: thousands of nodes, and a
//                                                    new main.tsdb
//
// `work` says "open", "done NUMBER" after each transaction, or "failed NUMBER REASON", and "closed". Every
// line is one write to standard output, so that the death of the process takes back nothing that was said.

#include <iostream>
#include <optional>

#include "common/errors.h"
#include "metadb/storage/journal.h"
#include "nodemodel/node_store.h"
#include "observe.h"
#include "platform/platform.h"
#include "small_pair.h"
#include "timeseries/levels.h"
#include "workload.h"

namespace real {
namespace {

template <typename... Pieces>
void say(const Pieces&... pieces) {
  std::cout << text::concat(pieces..., '\n') << std::flush;
}

// With the journal that lies beside it, if one does. Returns the nodes.
State open(const std::string& directory) {
  const std::string journal = directory + "\\main.odbj";
  const bool is_external = platform::system().open_read_only(journal).ok();
  support::open_nodes(directory + "\\main.odb", is_external ? std::optional(journal) : std::nullopt);
  return support::stored_nodes(first_id, id_count);
}

// A single change is left to the transactions of its own.
void carry_out(const std::set<std::uint32_t>& changed, const State& state, std::uint64_t number) {
  if (number % 16 == 0)
    mdb::journal_flip(number % 32 == 0);
  if (changed.size() == 1)
    return support::store_as_in(state, *changed.begin(), *changed.begin());
  mdb::Transaction transaction;
  for (const std::uint32_t id : changed)
    support::store_as_in(state, id, id);
  transaction.end(number % 4 != 0);
}

void work(const std::string& directory, std::uint64_t seed, std::uint64_t first, std::uint64_t count) {
  State state = open(directory);
  say("open");
  for (std::uint64_t number = first; number < first + count; ++number) {
    const State before = state;
    try {
      const auto changed = take_step(seed, number, state);
      carry_out(changed, state, number);
      say("done ", number);
    } catch (const error::Exception& failure) {
      say("failed ", number, ' ', failure.full_text());
      state = before;
    }
  }
  mdb_test::close_mdb();
  say("closed");
}

void fill(const std::string& directory) {
  open(directory);
  for (std::uint32_t id = 100; id < 4'100; ++id) {
    const auto node = support::store_server_node(id, {id / 10, "</script> <b>" + std::to_string(id)});
    if (id > 500 && id % 11 == 0)
      mdb::node_erase(node);
  }
  const std::string tsdb = directory + "/main.tsdb";
  if (!platform::system().create_new(tsdb).ok())
    throw tsdb::error_internal("No new file at " + tsdb);
  support::create_tsdb(tsdb, {1'024, 20'000, 5, {100, 100, 100, 100}});
  for (std::uint32_t i = 0; i < 200; ++i)
    tsdb::allocate_described_ts({.datatype = 1 + i % 4, .levels = {{500 + 7 * i, 1}, {100, 2}, {20, 3}}});
  support::drop_databases();
}

}  // namespace
}  // namespace real

int main(int, char** words) {
  const support::LogCapture log;
  const std::string mode = words[1], directory = words[2];
  try {
    if (mode == "work") {
      real::work(directory, std::stoull(words[3]), std::stoull(words[4]), std::stoull(words[5]));
    } else if (mode == "fill") {
      real::fill(directory);
    } else {
      std::cout << real::describe(real::open(directory));
    }
  } catch (const error::Exception& failure) {
    real::say("refused ", failure.full_text());
    return 1;
  }
}
