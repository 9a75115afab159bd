// Fills a pair like that of a small server: make_pair DIRECTORY, which holds a new main.odb. The time series
// database is made anew. Anything that goes wrong ends the process.

#include <cstdint>
#include <string>

#include "common/errors.h"
#include "metadb/objects/database.h"
#include "nodemodel/node_types.h"
#include "observe.h"
#include "platform/platform.h"
#include "small_pair.h"
#include "timeseries/create_tsdb.h"
#include "timeseries/levels.h"

namespace {

using dbcache::node_type_t;

constexpr std::uint32_t series_count = 200;

constexpr std::uint32_t first_node = 100;
constexpr std::uint32_t site_count = 12;
constexpr std::uint32_t host_count = 300;
constexpr std::uint32_t node_count = 4'000;

void make_tsdb(const std::string& path) {
  if (!platform::system().create_new(path).ok())
    throw tsdb::error_internal("No new file at " + path);
  support::create_tsdb(path, {1'024, 20'000, 5, {100, 100, 100, 100}});
  for (std::uint32_t i = 0; i < series_count; ++i)
    tsdb::allocate_described_ts({.datatype = 1 + i % 4, .levels = {{500 + 7 * i, 1}, {100, 2}, {20, 3}}});
  tsdb::tsdb_close();
}

// Sites below the root domain, hosts below sites, checks below hosts.
void store_node(std::uint32_t i) {
  const auto [type, parent] = i < site_count ? std::pair(node_type_t::domain, 1u)
                              : i < host_count
                                  ? std::pair(node_type_t::host, first_node + i % site_count)
                                  : std::pair(i % 3 ? node_type_t::agent_check : node_type_t::snmp_check,
                                              first_node + site_count + i * 7 % (host_count - site_count));
  const mdb::ObjectReference reference = support::store_node(
      {}, mdb::PropertyNodeId(0, {0, first_node + i}), mdb::PropertyNodeId(2, {0, parent}),
      mdb::PropertyEnum<node_type_t>(3, type), mdb::PropertyString(51, "</script> <b>" + std::to_string(i)),
      mdb::PropertyString(900, std::string(i % 150, 'x')));
  if (i > host_count && i % 11 == 0)
    mdb::node_erase(reference);
}

}  // namespace

int main(int, char** argv) {
  const std::string directory = argv[1];
  const support::LogCapture log;
  make_tsdb(directory + "/main.tsdb");
  support::open_nodes(directory + "/main.odb");
  for (std::uint32_t i = 0; i < node_count; ++i)
    store_node(i);
  mdb::mdb_close();
}
