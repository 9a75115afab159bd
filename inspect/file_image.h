// The bytes of the files, as the walkers see them: a file on the disk, and the meta database with its journal
// laid over.

#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "platform/platform.h"

namespace inspect {

using Bytes = std::vector<std::byte>;
using ByteView = std::span<const std::byte>;

// Thrown when the system does not let a file be read.
struct Unreadable {
  std::string text;
};

// The offset of the first byte that is not zero.
std::optional<std::size_t> first_nonzero(ByteView bytes);

// A file that is open for reading alone.
class SourceFile {
 public:
  // Throws Unreadable.
  explicit SourceFile(const std::string& path);

  std::uint64_t size_bytes() const { return size_bytes_; }

  // REQUIRES (both): the range lies within the file. Throw Unreadable.
  void read(std::uint64_t position, std::span<std::byte> buffer) const;
  Bytes read(std::uint64_t position, std::uint64_t length_bytes) const;

  // The place of the first byte in [begin, end) that is not zero; read in pieces.
  // REQUIRES: the range lies within the file. Throws Unreadable.
  std::optional<std::uint64_t> find_nonzero(std::uint64_t begin, std::uint64_t end) const;

 private:
  std::uint64_t probe_size() const;
  bool has_byte_at(std::uint64_t position) const;

  std::unique_ptr<platform::File> file_;
  std::uint64_t size_bytes_;
};

// A change that the journal makes: `length` bytes from `source` in the journal belong at `target`.
struct Update {
  std::uint64_t target;
  std::uint32_t source;
  std::uint32_t length;
};

// The meta database as a reader finds it once the journal has been carried out. Holds the updates, not the
// blocks: a block is put together when it is read.
class MdbImage {
 public:
  // Later updates win. REQUIRES: `file` and `journal` outlive the image; the sources lie within the journal.
  MdbImage(const SourceFile& file, ByteView journal, std::uint32_t block_size,
           const std::vector<Update>& updates);

  std::uint32_t block_size() const { return block_size_; }
  // Whole blocks; an update past the file's end lengthens it up to the next block boundary.
  std::uint64_t block_count() const { return size_bytes_ / block_size_; }

  // Whether the block lies past the file's end and no update reaches it: all its bytes are zero.
  bool is_hole(std::uint64_t block) const;

  // The block's bytes. REQUIRES: block < block_count(). Throws Unreadable.
  Bytes block(std::uint64_t block) const;

 private:
  // The part of an update that falls into one block.
  struct Piece {
    std::uint32_t block;
    std::uint32_t offset;
    std::uint32_t source;
    std::uint32_t length;
  };

  void add_pieces(const Update& update);
  std::span<const Piece> pieces_of(std::uint64_t block) const;

  const SourceFile* file_;
  ByteView journal_;
  std::uint32_t block_size_;
  std::uint64_t size_bytes_;
  std::vector<Piece> pieces_;  // by block, then in the order of the journal
};

}  // namespace inspect
