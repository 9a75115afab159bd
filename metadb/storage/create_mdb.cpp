#include "metadb/storage/create_mdb.h"

#include "metadb/storage/backing_store.h"
#include "metadb/storage/journal.h"
#include "metadb/storage/mapped_journal.h"

namespace mdb {
namespace {

// What lies where in a new database, in its blocks: the header, an internal journal, the allocation map, then
// data, of which the first two blocks become the index roots.
struct Layout {
  static constexpr std::uint32_t header_blocks = 1;
  static constexpr std::uint32_t map_blocks = 256;
  static constexpr std::uint32_t data_blocks = 128;

  std::uint32_t journal_first;
  std::uint32_t bitmap_first;
  std::uint32_t data_first;
  std::uint32_t file_blocks;
};

constexpr Layout layout_for(std::uint32_t journal_blocks, bool journal_external) {
  const std::uint32_t blocks_inside = journal_external ? 0 : journal_blocks;
  const std::uint32_t bitmap_first = Layout::header_blocks + blocks_inside;
  const std::uint32_t data_first = bitmap_first + Layout::map_blocks;
  return {
      .journal_first = journal_external ? 0 : Layout::header_blocks,
      .bitmap_first = bitmap_first,
      .data_first = data_first,
      .file_blocks = data_first + Layout::data_blocks,
  };
}
static_assert(layout_for(1024, true).file_blocks == 385);
static_assert(layout_for(1024, false).file_blocks == 1024 + 385);

constexpr std::uint64_t bytes_in(std::uint64_t blocks) {
  return blocks * new_mdb_block_bytes;
}

void write_header(const CreateMdbSettings& settings, const Layout& layout) {
  mdb_write_header({
      .block_size = new_mdb_block_bytes,
      .journal_placement = settings.journal_placement,
      .journal_path = settings.journal_path,
      .journal_first_block = layout.journal_first,
      .journal_block_count = settings.journal_blocks,
      .index_roots = {layout.data_first, layout.data_first + 1},
      .bitmap_first = layout.bitmap_first,
      .data_first = layout.data_first,
  });
}

}  // namespace

void create_mdb(const CreateMdbSettings& settings) {
  const bool external = settings.journal_placement == JournalPlacement::external;
  const auto layout = layout_for(settings.journal_blocks, external);
  settings.make_database(settings.path, bytes_in(layout.file_blocks));
  backing_open(settings.path);
  write_header(settings, layout);
  if (external && settings.make_journal)
    settings.make_journal(settings.journal_path, bytes_in(settings.journal_blocks));
  // Maps as many bytes as the journal has blocks: formatting touches no more than the journal's header, and
  // who opens the database maps all of it.
  journal_map(external ? settings.journal_path : settings.path, bytes_in(layout.journal_first),
              settings.journal_blocks, external);
  journal_format();
}

}  // namespace mdb
