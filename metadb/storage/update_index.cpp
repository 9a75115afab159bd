#include "update_index.h"

#include <algorithm>

#include "metadb/storage/backing_store.h"

namespace mdb {

void UpdateIndex::add(const UpdateRecord& record) {
  const std::size_t number = records_.size();
  records_.push_back(record);
  const std::uint64_t last = (record.target + record.length - 1) / block_size();
  for (std::uint64_t block = record.target / block_size(); block <= last; ++block)
    append_link(block, number);
}

bool UpdateIndex::covers_block(const Link& link) const {
  const UpdateRecord& record = records_[link.record];
  const std::uint64_t start = link.block * block_size();
  return record.target <= start && record.target + record.length >= start + block_size();
}

bool UpdateIndex::covers(std::uint64_t block) const {
  const auto chain = chains_.find(block);
  return chain != chains_.end() && covers_block(links_[first_that_counts(chain->second)]);
}

std::size_t UpdateIndex::first_that_counts(const Chain& chain) const {
  std::size_t link = chain.last;
  while (link != chain.first && !covers_block(links_[link]))
    link = links_[link].previous;
  return link;
}

void UpdateIndex::append_link(std::uint64_t block, std::size_t record) {
  const std::size_t link = links_.size();
  if (link == links_.capacity())
    links_.reserve(2 * link + 1);  // so that nothing can fail once the chain knows the link
  const auto [chain, is_new] = chains_.try_emplace(block, Chain{link, link});
  links_.push_back({block, record, is_new ? no_link : chain->second.last, no_link});
  if (is_new)
    return;
  links_[chain->second.last].next = link;
  chain->second.last = link;
}

void UpdateIndex::truncate(std::size_t count) {
  if (count == 0)
    return clear();
  while (!links_.empty() && links_.back().record >= count)
    drop_last_link();
  records_.resize(std::min(count, records_.size()), {});
}

void UpdateIndex::drop_last_link() {
  const Link link = links_.back();
  links_.pop_back();
  if (link.previous == no_link) {
    chains_.erase(link.block);
    return;
  }
  links_[link.previous].next = no_link;
  chains_[link.block].last = link.previous;
}

void UpdateIndex::clear() {
  records_.clear();
  links_.clear();
  chains_.clear();
}

void UpdateIndex::move_data(std::int64_t distance) {
  for (auto& record : records_) {
    record.data_position = static_cast<std::uint32_t>(std::int64_t{record.data_position} + distance);
  }
}

std::vector<std::uint64_t> UpdateIndex::blocks() const {
  std::vector<std::uint64_t> result;
  result.reserve(chains_.size());
  for (const auto& [block, chain] : chains_)
    result.push_back(block);
  std::ranges::sort(result);
  return result;
}

}  // namespace mdb
