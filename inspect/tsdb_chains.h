// Walking the pointer chains of a time series database.

#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "file_image.h"
#include "inspect/details.h"
#include "inspect/report.h"

namespace inspect {

// What the walkers know of the file once its header made sense.
struct TsdbShape {
  std::uint32_t block_size;
  std::uint64_t block_count;  // whole blocks in the file
  std::uint32_t set_count;
};

struct ChainId {
  std::uint32_t kind;  // in the order of the chain table
  std::uint32_t set;

  bool operator==(const ChainId&) const = default;
};

std::string name_of(ChainId id);

inline Place place_in_tsdb(std::uint64_t block, std::uint64_t offset) {
  return {DatabaseFile::tsdb, block, offset};
}

// The blocks of a chain in its order, as far as they could be followed.
struct ChainBlocks {
  std::vector<std::uint32_t> blocks;
  bool is_whole = false;

  std::vector<BlockRun> runs() const;
};

// Follows one chain after the other. A block belongs to one chain and one place in it, so that no walk is
// longer than the file.
class ChainWalker {
 public:
  ChainWalker(const SourceFile& file, const TsdbShape& shape, Report& report)
      : file_(file), shape_(shape), report_(report) {}

  // `named_at` is where `first_block` stands. In a chain that is being changed a run that was linked but
  // never reached the medium is what an interrupted growth leaves.
  ChainBlocks walk(ChainId id, std::uint32_t first_block, const Place& named_at, bool is_being_changed);

  const std::unordered_map<std::uint32_t, ChainId>& owners() const { return owners_; }

 private:
  struct Step;

  bool can_enter(const Step& step);
  bool check_block(const Step& step, ByteView block);

  const SourceFile& file_;
  TsdbShape shape_;
  Report& report_;
  std::unordered_map<std::uint32_t, ChainId> owners_;
};

}  // namespace inspect
