#include "mdb_header_check.h"

#include <algorithm>
#include <bit>

#include "metadb/storage/mdb_format.h"
#include "words.h"

namespace inspect {

namespace header = mdb::format::header;

std::uint64_t MdbLayout::addressable_blocks() const {
  constexpr std::uint64_t most_blocks = std::uint64_t{1} << 32;
  return std::min(std::uint64_t{data_first_block - map_first_block} * block_size, most_blocks);
}

namespace {

constexpr std::uint32_t required_indexes = 2;

class HeaderCheck {
 public:
  HeaderCheck(const SourceFile& file, MdbFacts& facts, Report& report)
      : file_(file), facts_(facts), report_(report) {}

  std::optional<MdbLayout> run() {
    if (!check_fixed_fields() || !check_journal_place() || !check_tail())
      return std::nullopt;
    check_roots();
    check_rest();
    return layout_;
  }

 private:
  static Place at(std::uint64_t offset) { return place_in_mdb(0, offset); }

  bool check_fixed_fields() {
    facts_.file_bytes = file_.size_bytes();
    if (file_.size_bytes() < header::size) {
      report_.damage(at(0), "header: found ", file_.size_bytes(), " bytes in the file, expected ",
                     header::size, " at least");
      return false;
    }
    bytes_ = file_.read(0, header::size);
    report_.expect_equal(at(header::magic), "magic", magic_text(bytes::load_u32(bytes_, header::magic)),
                         magic_text(header::magic_word));
    facts_.version = bytes::load_u32(bytes_, header::version);
    report_.expect_equal(at(header::version), "version", facts_.version, header::current_version);
    const std::uint32_t size = bytes::load_u32(bytes_, header::block_size);
    facts_.block_size = layout_.block_size = size;
    if (!std::has_single_bit(size) || size < header::min_block_size || size > header::max_block_size) {
      report_.damage(at(header::block_size), "block size: found ", size, ", expected a power of two from ",
                     header::min_block_size, " to ", header::max_block_size);
      return false;
    }
    if (const std::uint64_t torn = file_.size_bytes() % size; torn != 0) {
      report_.note(place_in_mdb(file_.size_bytes() / size, 0), "the last ", torn,
                   " bytes of the file are no whole block: growth was interrupted");
    }
    return true;
  }

  bool check_journal_place() {
    const std::uint32_t type = bytes::load_u32(bytes_, header::journal_type);
    a_ = bytes::load_u32(bytes_, header::path_field_length);
    layout_.journal_is_internal = type == header::type_internal;
    if (layout_.journal_is_internal) {
      layout_.journal_first_block = a_;
      layout_.journal_block_count = bytes::load_u32(bytes_, header::journal_block_count);
      return true;
    }
    if (type != header::type_external) {
      report_.damage(at(header::journal_type), "journal type: found ", type, ", expected 1 or 2");
      return false;
    }
    return check_path();
  }

  bool check_path() {
    if (a_ > header::max_path_field || a_ % header::path_alignment != 0) {
      report_.damage(at(header::path_field_length), "length of the journal path's field: found ", a_,
                     ", expected a multiple of ", header::path_alignment, " up to ", header::max_path_field);
      return false;
    }
    const ByteView field =
        ByteView(bytes_).subspan(header::path, std::min<std::size_t>(a_, bytes_.size() - header::path));
    const auto end = std::ranges::find(field, std::byte{0});
    std::ranges::transform(field.begin(), end, std::back_inserter(layout_.journal_path),
                           [](std::byte byte) { return std::to_integer<char>(byte); });
    const std::size_t length = layout_.journal_path.size();
    const std::size_t field_for_path =
        (length + header::path_alignment - 1) / header::path_alignment * header::path_alignment;
    if (length == 0) {
      report_.damage(at(header::path), "journal path: found none, expected the path of the journal");
    } else if (field_for_path != a_) {
      report_.damage(at(header::path_field_length), "length of the journal path's field: found ", a_,
                     ", expected ", field_for_path, " for a path of ", length, " bytes");
    }
    if (const auto nonzero = first_nonzero(field.subspan(length))) {
      report_.damage(at(header::path + length + *nonzero),
                     "padding of the journal path: found a byte that is not zero, expected zeros");
    }
    return true;
  }

  // Makes bytes_ hold `end` bytes of the header. False when they do not lie in the first block.
  bool require(std::uint64_t end, std::uint64_t field_offset, std::string_view field) {
    if (end > layout_.block_size || end > file_.size_bytes()) {
      report_.damage(at(field_offset), field, ": found a header of ", end, " bytes, expected one within the ",
                     layout_.block_size, " bytes of its block");
      return false;
    }
    if (end > bytes_.size())
      bytes_ = file_.read(0, end);
    return true;
  }

  bool check_tail() {
    const std::uint64_t tail = mdb::format::header_tail(a_);
    if (!require(tail + mdb::format::header_tail_size(0), header::path_field_length,
                 "place of what follows the journal's")) {
      return false;
    }
    const std::uint32_t root_count = bytes::load_u32(bytes_, static_cast<std::size_t>(tail));
    end_ = tail + mdb::format::header_tail_size(root_count);
    if (!require(end_, tail, "number of index roots"))
      return false;
    const auto fields = ByteView(bytes_).subspan(static_cast<std::size_t>(tail));
    roots_offset_ = tail + header::roots;
    for (std::uint32_t i = 0; i < root_count; ++i)
      layout_.roots.push_back(bytes::load_u32(fields, header::roots + 4 * std::size_t{i}));
    const std::size_t after_roots = header::roots + 4 * std::size_t{root_count};
    report_.expect_equal(at(tail + after_roots), "unused word", bytes::load_u32(fields, after_roots),
                         std::uint32_t{0});
    map_field_ = tail + after_roots + header::bitmap_first_after_roots;
    layout_.map_first_block = bytes::load_u32(fields, after_roots + header::bitmap_first_after_roots);
    layout_.data_first_block = bytes::load_u32(fields, after_roots + header::data_first_after_roots);
    facts_.map_first_block = layout_.map_first_block;
    facts_.data_first_block = layout_.data_first_block;
    return check_map_place() && check_internal_journal();
  }

  bool check_map_place() {
    const std::uint64_t blocks = file_.size_bytes() / layout_.block_size;
    if (layout_.map_first_block < 1 || layout_.map_first_block >= layout_.data_first_block ||
        layout_.data_first_block > blocks) {
      report_.damage(at(map_field_), "allocation map: found blocks ", layout_.map_first_block, " up to ",
                     layout_.data_first_block, ", expected one at least, from 1 on and within the ", blocks,
                     " blocks of the file");
      return false;
    }
    return true;
  }

  bool check_internal_journal() {
    if (!layout_.journal_is_internal)
      return true;
    if (a_ < 1 || a_ >= layout_.map_first_block) {
      report_.damage(at(header::journal_first_block), "first block of the journal: found ", a_,
                     ", expected 1 to ", layout_.map_first_block - 1);
      return false;
    }
    // What the tail has left of the count.
    const std::uint32_t kept_bytes = std::min<std::uint32_t>(a_, sizeof(std::uint32_t));
    const std::uint32_t shift = 8 * (static_cast<std::uint32_t>(sizeof(std::uint32_t)) - kept_bytes);
    report_.expect_equal(at(header::journal_block_count), "number of journal blocks, as far as it is kept",
                         layout_.journal_block_count >> shift, (layout_.map_first_block - a_) >> shift);
    return true;
  }

  void check_roots() {
    const std::uint64_t blocks = layout_.addressable_blocks();
    if (layout_.roots.size() < required_indexes) {
      report_.damage(at(roots_offset_ - header::roots), "number of index roots: found ", layout_.roots.size(),
                     ", expected ", required_indexes, " at least");
    } else if (layout_.roots.size() > honoured_index_count) {
      report_.note(at(roots_offset_ - header::roots), "the header counts ", layout_.roots.size(),
                   " index roots, of which ", honoured_index_count, " are honoured");
    }
    std::vector<std::uint32_t> sorted = layout_.roots;
    std::ranges::sort(sorted);
    const auto appears_twice = [&](std::uint32_t root) {
      return std::ranges::upper_bound(sorted, root) - std::ranges::lower_bound(sorted, root) > 1;
    };
    for (std::size_t i = 0; i < layout_.roots.size(); ++i) {
      const std::uint32_t root = layout_.roots[i];
      if (root < layout_.data_first_block || root >= blocks) {
        report_.damage(at(roots_offset_ + 4 * i), "root of index ", i, ": found block ", root, ", expected ",
                       layout_.data_first_block, " to ", blocks - 1);
      } else if (appears_twice(root)) {
        report_.damage(at(roots_offset_ + 4 * i), "root of index ", i, ": found block ", root,
                       " for several indexes, expected one of its own");
      }
    }
  }

  // Up to the journal or the map all bytes belong to the header.
  void check_rest() {
    const std::uint64_t end = layout_.journal_is_internal
                                  ? std::uint64_t{layout_.journal_first_block} * layout_.block_size
                                  : layout_.map_position();
    if (end < end_) {
      report_.damage(at(0), "header: found ", end_, " bytes, expected ", end, " at most");
      return;
    }
    if (const auto found = file_.find_nonzero(end_, end)) {
      report_.damage(place_in_mdb(*found / layout_.block_size, *found % layout_.block_size),
                     "rest of the header: found a byte that is not zero, expected zeros");
    }
  }

  const SourceFile& file_;
  MdbFacts& facts_;
  Report& report_;
  MdbLayout layout_;
  Bytes bytes_;
  std::uint32_t a_ = 0;
  std::uint64_t end_ = 0;  // of the header
  std::uint64_t roots_offset_ = 0;
  std::uint64_t map_field_ = 0;
};

}  // namespace

std::optional<MdbLayout> check_mdb_header(const SourceFile& file, MdbFacts& facts, Report& report) {
  return HeaderCheck(file, facts, report).run();
}

}  // namespace inspect
