#include "views/json_parts.h"
#include "views/page_parts.h"

namespace inspect {
namespace {

constexpr std::size_t most_findings = 200;

void write_facts(JsonWriter& json, const std::string& directory, const Inspection& inspection) {
  write_verdict(json, directory, inspection);
  write_summary(json.key("summary"), inspection);
  write_findings(json.key("findings"), inspection.report, most_findings);
  // Without a chain table that could be read there are no blocks to speak of.
  if (inspection.tsdb && !inspection.tsdb->chains[0].empty()) {
    write_tsdb_blocks(json.key("tsdb_blocks"), *inspection.tsdb);
    write_chain_table(json.key("chains"), *inspection.tsdb);
  }
  if (inspection.mdb && inspection.mdb->block_count != 0) {
    write_mdb_blocks(json.key("mdb_blocks"), *inspection.mdb);
    write_fill(json.key("fill"), *inspection.mdb);
    write_trees(json.key("trees"), *inspection.mdb);
    write_node_outline(json.key("nodes"), *inspection.mdb);
  }
  if (inspection.journal)
    write_halves(json.key("halves"), *inspection.journal);
}

}  // namespace

void print_page(std::ostream& out, const std::string& directory, const Inspection& inspection) {
  out << page_before_facts;
  JsonWriter json(out, 0);
  json.object([&] { write_facts(json, directory, inspection); });
  out << page_after_facts;
}

}  // namespace inspect
