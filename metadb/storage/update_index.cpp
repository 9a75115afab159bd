#include "update_index.h"

#include <algorithm>
#include <utility>

#include "metadb/storage/backing_store.h"

namespace mdb {
namespace {

// Lists that only grow leave less than this between them: three times what they hold.
constexpr std::size_t most_room_for_each = 4;

std::uint64_t first_block(const UpdateRecord& record) {
  return record.target / block_size();
}
std::uint64_t last_block(const UpdateRecord& record) {
  return (record.target + record.length - 1) / block_size();
}

}  // namespace

bool covers_block(const UpdateRecord& update, std::uint64_t block) {
  const std::uint64_t start = block * block_size();
  return update.target <= start && update.target + update.length >= start + block_size();
}

void UpdateIndex::add(const UpdateRecord& record) {
  close_up_if_sparse();
  for (std::uint64_t block = first_block(record); block <= last_block(record); ++block)
    append(block, record);
}

// What is added and removed time and again takes no more memory than what stays.
void UpdateIndex::close_up_if_sparse() {
  if (updates_.size() <= most_room_for_each * (listed_ + 1))
    return;
  std::vector<UpdateRecord> closed_up;
  closed_up.reserve(updates_.size());
  for (auto& [block, list] : lists_) {
    const auto start = updates_.begin() + static_cast<std::ptrdiff_t>(list.start);
    list.start = closed_up.size();
    list.capacity = list.count;
    closed_up.insert(closed_up.end(), start, start + static_cast<std::ptrdiff_t>(list.count));
  }
  updates_ = std::move(closed_up);
}

void UpdateIndex::append(std::uint64_t block, const UpdateRecord& record) {
  const auto found = lists_.find(block);
  if (found == lists_.end()) {
    updates_.push_back(record);
    lists_.emplace(block, List{.start = updates_.size() - 1, .capacity = 1, .count = 1});
    listed_ += 1;
    return;
  }
  List& list = found->second;
  if (list.count == list.capacity)
    make_room(list);
  if (covers_block(record, block))
    list.counts_from = list.count;
  updates_[list.start + list.count] = record;
  list.count += 1;
  listed_ += 1;
}

// Twice as much at the end, unless it stands there already.
void UpdateIndex::make_room(List& list) {
  const bool is_at_end = list.start + list.capacity == updates_.size();
  const std::size_t start = is_at_end ? list.start : updates_.size();
  updates_.resize(start + 2 * list.capacity);
  if (!is_at_end)
    std::copy_n(updates_.begin() + static_cast<std::ptrdiff_t>(list.start), list.count,
                updates_.begin() + static_cast<std::ptrdiff_t>(start));
  list.start = start;
  list.capacity *= 2;
}

void UpdateIndex::remove_last(const UpdateRecord& record) {
  for (std::uint64_t block = last_block(record) + 1; block-- > first_block(record);) {
    const auto found = lists_.find(block);
    if (found == lists_.end())
      continue;  // adding it came no further
    List& list = found->second;
    if (updates_[list.start + list.count - 1].data_position == record.data_position)
      drop_last(block, list);
  }
}

void UpdateIndex::drop_last(std::uint64_t block, List& list) {
  list.count -= 1;
  listed_ -= 1;
  if (list.count == 0) {
    if (list.start + list.capacity == updates_.size())
      updates_.resize(list.start);
    lists_.erase(block);
    return;
  }
  if (list.counts_from < list.count)
    return;
  list.counts_from = list.count - 1;
  while (list.counts_from != 0 && !covers_block(updates_[list.start + list.counts_from], block))
    list.counts_from -= 1;
}

void UpdateIndex::clear() {
  updates_.clear();
  listed_ = 0;
  lists_.clear();
}

void UpdateIndex::move_data(std::int64_t distance) {
  for (UpdateRecord& update : updates_)
    update.data_position = static_cast<std::uint32_t>(std::int64_t{update.data_position} + distance);
}

std::vector<std::uint64_t> UpdateIndex::blocks() const {
  std::vector<std::uint64_t> result;
  result.reserve(lists_.size());
  for (const auto& [block, list] : lists_)
    result.push_back(block);
  std::ranges::sort(result);
  return result;
}

std::span<const UpdateRecord> UpdateIndex::of_block(std::uint64_t block) const {
  const auto found = lists_.find(block);
  if (found == lists_.end())
    return {};
  const List& list = found->second;
  return std::span(updates_).subspan(list.start + list.counts_from, list.count - list.counts_from);
}

}  // namespace mdb
