#include "views/block_cells.h"

#include <algorithm>

namespace inspect {

BlockCells::BlockCells(std::uint64_t block_count, std::vector<std::string> uses)
    : block_count_(block_count), uses_(std::move(uses)) {
  while (block_count_ / blocks_per_cell_ >= most_cells)
    blocks_per_cell_ *= 2;
  cells_.resize(static_cast<std::size_t>((block_count_ + blocks_per_cell_ - 1) / blocks_per_cell_));
}

void BlockCells::count(std::uint64_t first, std::uint64_t end, std::size_t use) {
  while (first < end) {
    const std::uint64_t cell_end = std::min(end, (first / blocks_per_cell_ + 1) * blocks_per_cell_);
    Cell& cell = cells_[static_cast<std::size_t>(first / blocks_per_cell_)];
    auto share = std::ranges::find(cell, use, &Share::use);
    if (share == cell.end())
      share = cell.insert(cell.end(), {use, 0});
    share->block_count += cell_end - first;
    first = cell_end;
  }
}

void BlockCells::add(std::uint64_t first, std::uint64_t count_of_blocks, std::size_t use) {
  const std::uint64_t begin = std::min(std::max(first, next_), block_count_);
  const std::uint64_t end = std::max(begin, std::min(first + count_of_blocks, block_count_));
  count(next_, begin, uses_.size() - 1);
  count(begin, end, use);
  next_ = end;
}

void BlockCells::write(JsonWriter& json) {
  add(block_count_, 0, 0);
  json.object([&] {
    json.member("block_count", block_count_).member("per_cell", blocks_per_cell_);
    json.key("uses").array_of(uses_, [&](const std::string& use) { json.value(std::string_view(use)); });
    // Each as the number of cells that are alike, then pairs of a use and its blocks.
    json.key("cells").array([&] {
      for (auto cell = cells_.begin(); cell != cells_.end();) {
        const auto other = std::find_if(cell, cells_.end(), [&](const Cell& at) { return at != *cell; });
        json.array([&] {
          json.value(static_cast<std::uint64_t>(other - cell));
          for (const auto& [use, block_count] : *cell) {
            json.value(use);
            json.value(block_count);
          }
        });
        cell = other;
      }
    });
  });
}

}  // namespace inspect
