// The allocation map, and the data blocks that it speaks of.

#pragma once

#include <cstdint>
#include <vector>

#include "file_image.h"
#include "inspect/facts.h"
#include "inspect/report.h"
#include "mdb_header_check.h"

namespace inspect {

// The values of a class byte.
enum class BlockClass : std::uint8_t {
  empty = 0,
  used = 1,
  full = 2,
  index_root = 4,
  index_internal = 5,
  index_leaf = 6,
  large_object = 7
};

std::string_view name_of(BlockClass block_class);

// The class bytes of the blocks that the file has.
class BlockClasses {
 public:
  explicit BlockClasses(Bytes bytes) : bytes_(std::move(bytes)) {}

  std::uint64_t size() const { return bytes_.size(); }
  // REQUIRES: block < size().
  BlockClass operator[](std::uint64_t block) const {
    return static_cast<BlockClass>(std::to_integer<std::uint8_t>(bytes_[static_cast<std::size_t>(block)]));
  }
  std::vector<std::uint8_t> bytes() const;
  bool is_data(std::uint64_t block) const {
    return block < size() && ((*this)[block] == BlockClass::used || (*this)[block] == BlockClass::full);
  }

 private:
  Bytes bytes_;
};

// Checks every class byte, those past the file's end included. Throws Unreadable.
BlockClasses check_map(const MdbImage& image, const MdbLayout& layout, MdbFacts& facts, Report& report);

// A live object in a data block.
struct LiveObject {
  std::uint32_t offset;        // of its header in the block
  std::uint32_t length_bytes;  // header included
};

// What the items of a data block are, as far as they could be followed.
struct DataBlock {
  std::vector<LiveObject> objects;  // in order
  std::uint64_t free_bytes = 0;
};

// Checks that the items of a data block tile it and that its class fits its free space.
DataBlock check_data_block(std::uint64_t block, BlockClass block_class, ByteView bytes, Report& report);

}  // namespace inspect
