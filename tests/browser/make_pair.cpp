// Fills a pair like that of a small server: make_pair DIRECTORY, which holds a new main.odb. The time series
// database is made anew. Anything that goes wrong ends the process.

#include <cstdint>
#include <string>

#include "common/errors.h"
#include "metadb/objects/database.h"
#include "observe.h"
#include "platform/platform.h"
#include "small_pair.h"
#include "timeseries/create_tsdb.h"
#include "timeseries/levels.h"

namespace {

constexpr std::uint32_t series_count = 200;
constexpr std::uint32_t first_node = 100;
constexpr std::uint32_t node_end = 4'100;

void make_tsdb(const std::string& path) {
  if (!platform::system().create_new(path).ok())
    throw tsdb::error_internal("No new file at " + path);
  support::create_tsdb(path, {1'024, 20'000, 5, {100, 100, 100, 100}});
  for (std::uint32_t i = 0; i < series_count; ++i)
    tsdb::allocate_described_ts({.datatype = 1 + i % 4, .levels = {{500 + 7 * i, 1}, {100, 2}, {20, 3}}});
  tsdb::tsdb_close();
}

}  // namespace

int main(int, char** argv) {
  const std::string directory = argv[1];
  const support::LogCapture log;
  make_tsdb(directory + "/main.tsdb");
  support::open_nodes(directory + "/main.odb");
  for (std::uint32_t id = first_node; id < node_end; ++id) {
    const auto node = support::store_server_node(id, "</script> <b>" + std::to_string(id));
    if (id % 11 == 0 && id > node_end / 10)
      mdb::node_erase(node);
  }
  mdb::mdb_close();
}
