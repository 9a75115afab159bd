#include "pair_fixture.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <sstream>

#include "common/crc32.h"
#include "inspect/command_line.h"
#include "metadb/storage/journal_format.h"

namespace inspect_test {

Writes with_crc(std::uint64_t at, std::uint64_t first, std::uint32_t second) {
  std::array<std::byte, 12> covered;
  bytes::store_u64(covered, 0, first);
  store_u32(covered, 8, second);
  return {{at, first, 8}, {at + 8, second}, {at + 12, security::crc32(covered)}};
}

void write_all(FileBytes& file, const Writes& writes) {
  for (const Write& write : writes) {
    file.resize(std::max<std::uint64_t>(file.size(), write.at + write.size));
    for (unsigned i = 0; i < write.size; ++i)
      file.at(write.at + i) = static_cast<std::byte>(write.value >> 8 * (write.size - 1 - i));
  }
}

Pair::Pair(const Shape& wanted)
    : shape{.map_blocks = wanted.map_blocks,
            .data_blocks = 100,
            .journal =
                wanted.internal_journal ? mdb::JournalPlacement::internal : mdb::JournalPlacement::external,
            .index_count = mdb::max_index_count} {
  // Head and lblock chains of two blocks.
  support::make_pair(sim, shape, {block_size, 128, 3, {200, 10, 40, 10}}, wanted.nodes);
  if (wanted.nodes == 0)
    return;
  change(shape.is_internal() ? "main.odb" : "main.odbj", [&](FileBytes& bytes) {
    const std::uint64_t start = shape.is_internal() ? std::uint64_t{shape.header_blocks()} * block_size : 0;
    const auto journal = std::span(bytes).subspan(start, shape.journal_bytes);
    std::ranges::fill(journal.subspan(mdb::format::journal_header_size), std::byte{0});
  });
}

void Pair::change(const std::string& name, const std::function<void(FileBytes&)>& change) {
  FileBytes bytes = file(name);
  change(bytes);
  sim.set_contents("/db/" + name, bytes);
}

void Pair::change(const std::string& name, const Writes& writes) {
  change(name, [&writes](FileBytes& bytes) { write_all(bytes, writes); });
}

std::vector<std::string> lines_of(const inspect::Inspection& inspection, Severity severity) {
  std::vector<std::string> lines;
  for (const inspect::Finding& finding : inspection.report.findings()) {
    if (finding.severity != severity)
      continue;
    const auto& [file, block, offset] = finding.place;
    lines.push_back(text::concat(name_of(file), " ", block ? std::to_string(*block) : "-", ":", offset, " ",
                                 finding.text));
  }
  return lines;
}

std::string expected(const std::string& name) {
  std::ifstream file(QUENOR_EXPECTED "/" + name, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

Outcome run(const std::vector<const char*>& arguments) {
  std::ostringstream out, err;
  const int status = inspect::run(arguments, out, err);
  return {status, out.str(), err.str()};
}

}  // namespace inspect_test
