#include "metadb/storage/mdb_header.h"

#include <algorithm>
#include <bit>
#include <limits>

#include "common/errors.h"
#include "common/log.h"
#include "common/text.h"
#include "metadb/storage/backing_store.h"
#include "metadb/storage/mapped_journal.h"
#include "metadb/storage/mdb_format.h"

namespace mdb {
namespace {

using Buffer = std::vector<std::byte>;

// The fields that the layers above ask for; set once the header has been checked.
struct Layout {
  std::uint32_t bitmap_first = 0;
  std::uint32_t data_first = 0;
  std::vector<std::uint32_t> roots;
  std::uint32_t root_count = 0;
};

struct Header {
  Buffer buffer;
  Layout layout;
};

Header header;

[[noreturn]] void fail_not_a_database() {
  throw error_fubar("MDB file does not look like a Quenor Meta Database");
}

// The path and the padding that fills its field; its terminating zero may be the first byte of the tail.
std::string padded_path(std::string path) {
  while (path.size() % format::header::path_alignment != 0)
    path.push_back('\0');
  if (path.size() > format::header::max_path_field)
    throw error_internal("Too long journal path");
  return path;
}

// Writes what stands at offsets 12 to 20 + A and returns A.
std::uint32_t store_journal_place(Buffer& buffer, const HeaderFields& fields) {
  if (fields.journal_placement == JournalPlacement::internal) {
    bytes::store_u32(buffer, format::header::journal_type, format::header::type_internal);
    bytes::store_u32(buffer, format::header::journal_first_block, fields.journal_first_block);
    bytes::store_u32(buffer, format::header::journal_block_count, fields.journal_block_count);
    return fields.journal_first_block;
  }
  if (fields.journal_placement != JournalPlacement::external)
    throw error_internal("Journal type unknown");
  const std::string path = padded_path(fields.journal_path);
  const auto field_length = static_cast<std::uint32_t>(path.size());
  bytes::store_u32(buffer, format::header::journal_type, format::header::type_external);
  bytes::store_u32(buffer, format::header::path_field_length, field_length);
  std::ranges::transform(path, buffer.begin() + format::header::path,
                         [](char c) { return static_cast<std::byte>(c); });
  return field_length;
}

void store_tail(Buffer& buffer, std::uint32_t a, const HeaderFields& fields) {
  const auto root_count = static_cast<std::uint32_t>(fields.index_roots.size());
  const std::uint64_t tail = format::header_tail(a);
  const std::uint64_t end = tail + format::header_tail_size(root_count);
  if (end > fields.block_size)
    throw error_internal("The header does not fit into a block");
  buffer.resize(std::max<std::size_t>(buffer.size(), static_cast<std::size_t>(end)));
  const auto at = std::span(buffer).subspan(static_cast<std::size_t>(tail));
  bytes::store_u32(at, format::header::root_count, root_count);
  for (std::size_t i = 0; i < root_count; ++i) {
    bytes::store_u32(at, format::header::roots + 4 * i, fields.index_roots[i]);
  }
  const std::size_t after_roots = format::header::roots + 4 * std::size_t{root_count};
  bytes::store_u32(at, after_roots + format::header::bitmap_first_after_roots, fields.bitmap_first);
  bytes::store_u32(at, after_roots + format::header::data_first_after_roots, fields.data_first);
}

void check_magic_and_version() {
  if (bytes::load_u32(header.buffer, format::header::magic) != format::header::magic_word)
    fail_not_a_database();
  const std::uint32_t version = bytes::load_u32(header.buffer, format::header::version);
  if (version != format::header::current_version) {
    throw error_unsupported(
        text::concat("This version of Quenor does not support version ", version, " databases"));
  }
}

void read_block_size() {
  const std::uint32_t size = bytes::load_u32(header.buffer, format::header::block_size);
  log(logging::information, logging::objects, "Using ", size, " byte MDB blocks");
  if (!std::has_single_bit(size) || size < format::header::min_block_size ||
      size > format::header::max_block_size) {
    throw error_unsupported(text::concat("Blocksize is ", size, " bytes - but it must be a power of two"));
  }
  set_block_size(size);
}

// Makes the buffer hold `end` bytes of block 0; the tail may lie past the first 1,024.
void require_buffer(std::uint64_t end) {
  if (end > block_size())
    fail_not_a_database();
  if (end <= header.buffer.size())
    return;
  if (end > backing_size())
    fail_not_a_database();
  header.buffer.resize(static_cast<std::size_t>(end));
  byte_read(header.buffer, 0);
}

Layout read_tail(std::uint32_t a) {
  const std::uint64_t tail = format::header_tail(a);
  require_buffer(tail + format::header_tail_size(0));
  const std::uint32_t root_count =
      bytes::load_u32(header.buffer, static_cast<std::size_t>(tail) + format::header::root_count);
  require_buffer(tail + format::header_tail_size(root_count));
  const auto at = std::span<const std::byte>(header.buffer).subspan(static_cast<std::size_t>(tail));
  const std::size_t after_roots = format::header::roots + 4 * std::size_t{root_count};
  Layout layout;
  layout.root_count = root_count;
  for (std::size_t i = 0; i < std::min(root_count, max_index_count); ++i) {
    layout.roots.push_back(bytes::load_u32(at, format::header::roots + 4 * i));
  }
  layout.bitmap_first = bytes::load_u32(at, after_roots + format::header::bitmap_first_after_roots);
  layout.data_first = bytes::load_u32(at, after_roots + format::header::data_first_after_roots);
  return layout;
}

void check_layout(const Layout& layout) {
  if (layout.bitmap_first < 1 || layout.bitmap_first >= layout.data_first ||
      std::uint64_t{layout.data_first} * block_size() > backing_size()) {
    fail_not_a_database();
  }
  for (auto root = layout.roots.begin(); root != layout.roots.end(); ++root) {
    if (*root < layout.data_first || std::find(layout.roots.begin(), root, *root) != root) {
      throw error_fubar(text::concat("Non-index node at index-block ", *root));
    }
  }
}

// The first byte past the blocks that have a class byte.
std::uint64_t addressable_bytes(const Layout& layout) {
  constexpr std::uint64_t max_blocks = std::uint64_t{1} << 32;
  const std::uint64_t mapped = std::uint64_t{layout.data_first - layout.bitmap_first} * block_size();
  return std::min(mapped, max_blocks) * block_size();
}

std::string stored_path(std::uint32_t field_length) {
  const auto field = std::span(header.buffer).subspan(format::header::path, field_length);
  std::string path;
  for (const std::byte byte : field) {
    if (byte == std::byte{0})
      break;
    path.push_back(std::to_integer<char>(byte));
  }
  return path;
}

void attach_internal_journal(std::uint32_t first_block, const Layout& layout) {
  if (first_block >= layout.bitmap_first)
    fail_not_a_database();
  const std::uint64_t offset = std::uint64_t{block_size()} * first_block;
  const std::uint64_t block_count = bytes::load_u32(header.buffer, format::header::journal_block_count);
  journal_map(backing_name(), offset, block_size() * block_count, false,
              std::uint64_t{layout.bitmap_first} * block_size() - offset);
  log(logging::information, logging::journal, "Journal: [", offset, " : ", offset + journal_mapped_length(),
      ")");
}

void attach_external_journal(const std::string& path) {
  journal_map(path, 0, 0, true);
  log(logging::information, logging::journal, "Journal: [0 : ", journal_mapped_length(), ")");
}

}  // namespace

void mdb_write_header(const HeaderFields& fields) {
  header = {};
  Buffer buffer(format::header::size);
  bytes::store_u32(buffer, format::header::magic, format::header::magic_word);
  bytes::store_u32(buffer, format::header::version, format::header::current_version);
  bytes::store_u32(buffer, format::header::block_size, fields.block_size);
  const std::uint32_t a = store_journal_place(buffer, fields);
  store_tail(buffer, a, fields);
  byte_write(buffer, 0, false);
  set_block_size(fields.block_size);
  header.buffer = std::move(buffer);
  header.layout = read_tail(a);
}

void mdb_open_header(const std::optional<std::string>& journal_path) {
  header = {};
  header.buffer.resize(format::header::size);
  byte_read(header.buffer, 0);
  check_magic_and_version();
  read_block_size();
  const std::uint32_t type = bytes::load_u32(header.buffer, format::header::journal_type);
  const bool is_external = type == format::header::type_external;
  if (!is_external && type != format::header::type_internal)
    throw error_unsupported("Unknown journal type");
  const std::uint32_t a = bytes::load_u32(header.buffer, format::header::path_field_length);
  if (is_external && (a > format::header::max_path_field || a % format::header::path_alignment != 0)) {
    fail_not_a_database();
  }
  const Layout layout = read_tail(a);
  check_layout(layout);
  set_address_limit(addressable_bytes(layout));
  if (is_external) {
    attach_external_journal(journal_path.value_or(stored_path(a)));
  } else {
    attach_internal_journal(a, layout);
  }
  header.layout = layout;
}

void mdb_forget_header() {
  header = {};
}

bool mdb_header_is_loaded() {
  return !header.buffer.empty();
}

std::uint32_t bitmap_first() {
  return header.layout.bitmap_first;
}
std::uint32_t data_first() {
  return header.layout.data_first;
}
std::uint32_t index_root_count() {
  return header.layout.root_count;
}
std::uint32_t index_root(std::uint32_t index) {
  return header.layout.roots[index];
}

}  // namespace mdb
