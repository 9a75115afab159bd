#include "createdb/default_content.h"

#include <cstdint>
#include <string_view>

#include "common/md5.h"
#include "metadb/objects/reference.h"
#include "nodemodel/node_store.h"
#include "nodemodel/node_types.h"
#include "nodemodel/properties.h"
#include "nodemodel/record_format.h"
#include "nodemodel/serialization_cache.h"
#include "timeseries/levels.h"

namespace createdb {
namespace {

using Number = mdb::PropertySomething32<std::uint32_t, 1>;
using CheckId = mdb::PropertySomething32<std::uint32_t, 8>;
using NodeType = mdb::PropertyEnum<dbcache::node_type_t>;
using dbcache::node_type_t;

// What the server makes of the properties that have numbers for names here is its own business.
namespace id {
constexpr std::uint32_t own = mdb::property_id::node_id;
constexpr std::uint32_t property_1 = 1;
constexpr std::uint32_t parent = mdb::property_id::parent_id;
constexpr std::uint32_t type = mdb::property_id::node_type;
constexpr std::uint32_t name = mdb::property_id::name;
constexpr std::uint32_t property_512 = 512;
constexpr std::uint32_t description = 900;
constexpr std::uint32_t password_digest = 901;
constexpr std::uint32_t time_series = 2601;
constexpr std::uint32_t property_2901 = 2901;
}  // namespace id

constexpr mdb::NodeId no_node = {0, 0};
constexpr mdb::NodeId root_domain_node = {0, 1};
constexpr mdb::NodeId first_node = {0, 4};
constexpr mdb::NodeId administrator_node = {0, 6};

constexpr std::uint32_t domain_numbers[] = {100, 101, 102, 103, 104};

// In the order of the record.
constexpr std::uint32_t administrator_rights[] = {902, 913, 914, 903, 904, 905, 906,
                                                  907, 908, 909, 910, 911, 912};

constexpr std::string_view default_password = "kelbrin";

template <typename... Properties>
void add_properties(const Properties&... properties) {
  (mdb::add_property(properties), ...);
}

// Starts a record of a node that has a place in the tree.
void begin_node(mdb::NodeId node, mdb::NodeId parent, node_type_t type, std::string_view name) {
  mdb::clear_cache();
  add_properties(mdb::PropertyNodeId(id::own, node), mdb::PropertyNodeId(id::parent, parent),
                 Number(id::property_1, 0), NodeType(id::type, type),
                 mdb::PropertyString(id::name, std::string(name)));
}

void store_new_node() {
  mdb::node_store(mdb::ObjectReference{});
}

void write_first_record() {
  mdb::clear_cache();
  add_properties(mdb::PropertyNodeId(id::own, first_node), Number(id::property_2901, 12));
  store_new_node();
}

void write_root_domain() {
  begin_node(root_domain_node, no_node, node_type_t::domain, "Root domain");
  add_properties(mdb::PropertyString(id::property_512, ""));
  for (const std::uint32_t number : domain_numbers)
    add_properties(Number(number, 0));
  store_new_node();
}

std::uint32_t allocate_administrator_series() {
  const tsdb::SeriesDescription description = {
      .datatype = 4,
      .levels = {{.entry_count = 102'400, .parameter = 1}},
  };
  return static_cast<std::uint32_t>(tsdb::allocate_described_ts(description));
}

void write_administrator() {
  const std::uint32_t series = allocate_administrator_series();
  begin_node(administrator_node, root_domain_node, node_type_t::user, "admin");
  add_properties(mdb::PropertyString(id::password_digest, security::md5_hex(default_password)));
  for (const std::uint32_t right : administrator_rights)
    add_properties(mdb::PropertyBool(right, true));
  add_properties(mdb::PropertyString(id::description, "Administrator account"),
                 CheckId(id::time_series, series));
  store_new_node();
}

}  // namespace

void write_default_content(Administrator administrator) {
  write_first_record();
  write_root_domain();
  if (administrator == Administrator::write)
    write_administrator();
}

}  // namespace createdb
