#include "file_image.h"

#include <algorithm>
#include <array>

#include "common/text.h"

namespace inspect {
namespace {

constexpr std::size_t scan_piece_bytes = 65'536;

[[noreturn]] void fail(std::uint32_t code) {
  throw Unreadable{system_error_string(code)};
}

}  // namespace

std::optional<std::size_t> first_nonzero(ByteView bytes) {
  const auto found = std::ranges::find_if(bytes, [](std::byte byte) { return byte != std::byte{0}; });
  if (found == bytes.end())
    return std::nullopt;
  return static_cast<std::size_t>(found - bytes.begin());
}

SourceFile::SourceFile(const std::string& path) : size_bytes_(0) {
  auto opened = platform::system().open_read_only(path);
  if (!opened.ok())
    fail(opened.status().code);
  file_ = std::move(opened.value());
  size_bytes_ = probe_size();
}

bool SourceFile::has_byte_at(std::uint64_t position) const {
  std::array<std::byte, 1> byte{};
  const auto count = file_->read_at(position, byte);
  if (!count.ok())
    fail(count.status().code);
  return count.value() == 1;
}

std::uint64_t SourceFile::probe_size() const {
  if (!has_byte_at(0))
    return 0;
  std::uint64_t present = 0;
  std::uint64_t absent = 1;
  while (absent <= platform::max_position / 2 && has_byte_at(absent)) {
    present = absent;
    absent *= 2;
  }
  while (absent - present > 1) {
    const std::uint64_t middle = present + (absent - present) / 2;
    (has_byte_at(middle) ? present : absent) = middle;
  }
  return present + 1;
}

void SourceFile::read(std::uint64_t position, std::span<std::byte> buffer) const {
  while (!buffer.empty()) {
    const auto count = file_->read_at(position, buffer);
    if (!count.ok())
      fail(count.status().code);
    if (count.value() == 0)
      throw Unreadable{
          text::concat("the file became shorter than ", size_bytes_, " bytes while it was read")};
    position += count.value();
    buffer = buffer.subspan(count.value());
  }
}

Bytes SourceFile::read(std::uint64_t position, std::uint64_t length_bytes) const {
  Bytes bytes(static_cast<std::size_t>(length_bytes));
  read(position, bytes);
  return bytes;
}

std::optional<std::uint64_t> SourceFile::find_nonzero(std::uint64_t begin, std::uint64_t end) const {
  for (std::uint64_t position = begin; position < end; position += scan_piece_bytes) {
    const Bytes piece = read(position, std::min<std::uint64_t>(scan_piece_bytes, end - position));
    if (const auto found = first_nonzero(piece))
      return position + *found;
  }
  return std::nullopt;
}

MdbImage::MdbImage(const SourceFile& file, ByteView journal, std::uint32_t block_size,
                   const std::vector<Update>& updates)
    : file_(&file), journal_(journal), block_size_(block_size), size_bytes_(file.size_bytes()) {
  for (const Update& update : updates)
    add_pieces(update);
  std::ranges::stable_sort(pieces_, {}, &Piece::block);
}

void MdbImage::add_pieces(const Update& update) {
  std::uint64_t target = update.target;
  std::uint32_t source = update.source;
  std::uint32_t left = update.length;
  while (left > 0) {
    const auto offset = static_cast<std::uint32_t>(target % block_size_);
    const std::uint32_t length = std::min(left, block_size_ - offset);
    pieces_.push_back({static_cast<std::uint32_t>(target / block_size_), offset, source, length});
    target += length;
    source += length;
    left -= length;
  }
  // What is written into a piece of a block makes the block whole, as it does in the file.
  if (target > size_bytes_ / block_size_ * block_size_) {
    size_bytes_ = std::max(size_bytes_, target);
    size_bytes_ = (size_bytes_ + block_size_ - 1) / block_size_ * block_size_;
  }
}

std::span<const MdbImage::Piece> MdbImage::pieces_of(std::uint64_t block) const {
  const auto first = std::ranges::lower_bound(pieces_, block, {}, &Piece::block);
  const auto end = std::ranges::upper_bound(pieces_, block, {}, &Piece::block);
  return {first, end};
}

bool MdbImage::is_hole(std::uint64_t block) const {
  return block * block_size_ >= file_->size_bytes() && pieces_of(block).empty();
}

Bytes MdbImage::block(std::uint64_t block) const {
  Bytes bytes(block_size_);
  const std::uint64_t position = block * block_size_;
  if (position < file_->size_bytes()) {
    const std::uint64_t present = std::min<std::uint64_t>(block_size_, file_->size_bytes() - position);
    file_->read(position, std::span(bytes).first(static_cast<std::size_t>(present)));
  }
  for (const Piece& piece : pieces_of(block))
    std::ranges::copy(journal_.subspan(piece.source, piece.length), bytes.begin() + piece.offset);
  return bytes;
}

}  // namespace inspect
