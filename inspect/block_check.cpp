#include "block_check.h"

#include <algorithm>
#include <array>

#include "common/bytes.h"
#include "metadb/objects/data_block.h"

namespace inspect {
namespace {

namespace item = mdb::format::item;

// By class byte; empty for those that mean nothing.
constexpr std::array<std::string_view, block_class_count> class_names = {
    "empty", "used data", "full data", "", "index root", "index node", "index leaf", "large object"};

constexpr std::uint64_t full_below_percent_free = 25;

bool is_known(std::uint8_t class_byte) {
  return class_byte < class_names.size() && !class_names[class_byte].empty();
}

class MapCheck {
 public:
  MapCheck(const MdbImage& image, const MdbLayout& layout, MdbFacts& facts, Report& report)
      : image_(image), layout_(layout), facts_(facts), report_(report) {}

  BlockClasses run() {
    Bytes classes;
    const std::uint64_t mapped = layout_.addressable_blocks();
    classes.reserve(static_cast<std::size_t>(std::min(mapped, image_.block_count())));
    for (std::uint64_t begin = 0; begin < mapped; begin += layout_.block_size) {
      const Bytes map_block = image_.block(layout_.map_first_block + begin / layout_.block_size);
      const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(map_block.size(), mapped - begin));
      for (std::size_t i = 0; i < count; ++i)
        check_class(begin + i, std::to_integer<std::uint8_t>(map_block[i]));
      const std::uint64_t in_file = image_.block_count() - std::min(begin, image_.block_count());
      const auto kept = static_cast<std::ptrdiff_t>(std::min<std::uint64_t>(count, in_file));
      classes.insert(classes.end(), map_block.begin(), map_block.begin() + kept);
    }
    return BlockClasses(std::move(classes));
  }

 private:
  Place place(std::uint64_t block) const {
    return place_in_mdb(layout_.map_first_block + block / layout_.block_size, block % layout_.block_size);
  }

  void check_class(std::uint64_t block, std::uint8_t class_byte) {
    count(block, class_byte);
    if (class_byte == 0)
      return;
    if (!is_known(class_byte)) {
      report_.damage(place(block), "class of block ", block, ": found ", class_byte,
                     ", expected 0 to 2 or 4 to 6");
    } else if (class_byte == static_cast<std::uint8_t>(BlockClass::large_object)) {
      report_.damage(place(block), "class of block ", block, ": found ", class_byte,
                     " (large object), expected none as nothing makes such blocks");
    } else if (block < layout_.data_first_block) {
      report_.damage(place(block), "class of block ", block, ": found ", class_byte,
                     ", expected 0 for a block before ", layout_.data_first_block);
    } else if (block >= image_.block_count()) {
      report_.damage(place(block), "class of block ", block, ": found ", class_byte,
                     ", expected 0 as the file has ", image_.block_count(), " blocks");
    }
  }

  void count(std::uint64_t block, std::uint8_t class_byte) {
    if (block >= image_.block_count() || block < layout_.data_first_block)
      return;
    if (is_known(class_byte)) {
      facts_.class_counts[class_byte] += 1;
    } else {
      facts_.unknown_class_count += 1;
    }
  }

  const MdbImage& image_;
  const MdbLayout& layout_;
  MdbFacts& facts_;
  Report& report_;
};

}  // namespace

std::string_view name_of(BlockClass block_class) {
  const auto class_byte = static_cast<std::uint8_t>(block_class);
  return is_known(class_byte) ? class_names[class_byte] : "unknown";
}

BlockClasses check_map(const MdbImage& image, const MdbLayout& layout, MdbFacts& facts, Report& report) {
  return MapCheck(image, layout, facts, report).run();
}

std::vector<std::uint8_t> BlockClasses::bytes() const {
  std::vector<std::uint8_t> classes(bytes_.size());
  std::ranges::transform(bytes_, classes.begin(),
                         [](std::byte byte) { return std::to_integer<std::uint8_t>(byte); });
  return classes;
}

DataBlock check_data_block(std::uint64_t block, BlockClass block_class, ByteView bytes, Report& report) {
  DataBlock found;
  std::uint64_t offset = 0;
  while (offset < bytes.size()) {
    const std::uint64_t room = bytes.size() - offset;
    const std::uint32_t header =
        room < item::header_size ? 0 : bytes::load_u32(bytes, static_cast<std::size_t>(offset));
    const std::uint32_t length = header & ~item::placeholder_bit;
    if (length < item::header_size || length > room) {
      report.damage(place_in_mdb(block, offset), "length of an item: found ", length, ", expected ",
                    item::header_size, " to ", room);
      return found;
    }
    if ((header & item::placeholder_bit) != 0) {
      found.free_bytes += length;
    } else {
      found.objects.push_back({static_cast<std::uint32_t>(offset), length});
    }
    offset += length;
  }
  const std::uint64_t threshold = bytes.size() * full_below_percent_free / 100;
  if (block_class == BlockClass::full && found.free_bytes >= threshold) {
    report.damage(place_in_mdb(block, 0), "free space of a block of class 2: found ", found.free_bytes,
                  " bytes, expected less than ", threshold);
  }
  return found;
}

}  // namespace inspect
