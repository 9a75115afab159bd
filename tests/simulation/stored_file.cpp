#include "stored_file.h"

#include <algorithm>
#include <cstring>
#include <set>

namespace simulation {
namespace {

// Copies the part that two placed runs of bytes have in common.
void copy_common(std::uint64_t from_position, std::span<const std::byte> from, std::uint64_t to_position,
                 std::span<std::byte> to) {
  const std::uint64_t begin = std::max(from_position, to_position);
  const std::uint64_t end = std::min(from_position + from.size(), to_position + to.size());
  if (begin >= end)
    return;
  std::copy_n(from.begin() + static_cast<std::ptrdiff_t>(begin - from_position), end - begin,
              to.begin() + static_cast<std::ptrdiff_t>(begin - to_position));
}

std::uint64_t next_sector(std::uint64_t position) {
  return (position / sector_size + 1) * sector_size;
}

}  // namespace

std::vector<std::byte> StoredFile::seen() const {
  std::vector<std::byte> bytes(contents_.size());
  (void)read(0, bytes);
  return bytes;
}

std::size_t StoredFile::read(std::uint64_t position, std::span<std::byte> buffer) const {
  if (position >= contents_.size())
    return 0;
  const std::size_t count = std::min<std::uint64_t>(buffer.size(), contents_.size() - position);
  const std::span<std::byte> wanted = buffer.first(count);
  copy_common(0, contents_, position, wanted);
  for (const View* view : views_)
    copy_common(view->position, view->bytes, position, wanted);
  return count;
}

void StoredFile::write(std::uint64_t position, std::span<const std::byte> bytes) {
  if (bytes.empty())
    return;
  contents_.resize(std::max<std::uint64_t>(contents_.size(), position + bytes.size()));
  copy_common(position, bytes, 0, contents_);
  for (View* view : views_)
    copy_common(position, bytes, view->position, view->bytes);
  changes_.push_back({position, {bytes.begin(), bytes.end()}});
}

template <typename Chosen>
void StoredFile::take_over(const View& view, Chosen chosen) {
  const std::uint64_t end = view.position + view.bytes.size();
  for (std::uint64_t begin = view.position; begin < end; begin = next_sector(begin)) {
    const std::uint64_t sector_end = std::min(next_sector(begin), end);
    const auto stored = std::span(view.bytes).subspan(begin - view.position, sector_end - begin);
    if (std::memcmp(stored.data(), contents_.data() + begin, stored.size()) == 0)
      continue;
    if (!chosen())
      continue;
    const std::vector<std::byte> bytes(stored.begin(), stored.end());
    write(begin, bytes);
  }
}

void StoredFile::take_over(const View& view) {
  take_over(view, [] { return true; });
}

void StoredFile::take_over_some(std::mt19937_64& coin) {
  for (const View* view : views_)
    take_over(*view, [&coin] { return coin() % 2 == 0; });
}

void StoredFile::sync() {
  for (const Change& change : changes_) {
    apply_to_durable(change, change.position, change.position + change.bytes.size());
  }
  changes_.clear();
}

void StoredFile::apply_to_durable(const Change& change, std::uint64_t from, std::uint64_t to) {
  const std::uint64_t begin = std::max(from, change.position);
  const std::uint64_t end = std::min(to, change.position + change.bytes.size());
  durable_.resize(std::max<std::uint64_t>(durable_.size(), end));
  copy_common(begin, std::span(change.bytes).subspan(begin - change.position, end - begin), 0, durable_);
}

std::map<std::uint64_t, std::vector<const StoredFile::Change*>> StoredFile::changes_by_sector() const {
  std::map<std::uint64_t, std::vector<const Change*>> sectors;
  for (const Change& change : changes_) {
    const std::uint64_t end = change.position + change.bytes.size();
    for (std::uint64_t at = change.position; at < end; at = next_sector(at)) {
      sectors[at / sector_size].push_back(&change);
    }
  }
  return sectors;
}

void StoredFile::lose_views() {
  for (const View* view : views_)
    take_over(*view);  // a store may have reached the medium at any time
  views_.clear();
}

std::set<const StoredFile::Change*> StoredFile::chosen_changes(Kept kept, std::mt19937_64& random,
                                                               std::optional<std::size_t> missing) const {
  std::set<const Change*> chosen;
  for (std::size_t i = 0; i < changes_.size(); ++i) {
    if (kept == Kept::random_writes ? random() % 2 == 0 : missing != i)
      chosen.insert(&changes_[i]);
  }
  return chosen;
}

void StoredFile::power_cut(Kept kept, std::mt19937_64& random, std::optional<std::size_t> missing) {
  std::set<const Change*> chosen;
  if (kept == Kept::random_writes || kept == Kept::all_but_one)
    chosen = chosen_changes(kept, random, missing);
  // A sector is written as it stands: with a change that it takes, it takes the earlier ones (S5).
  const auto received = [&](const std::vector<const Change*>& touching) -> std::size_t {
    if (kept == Kept::random_sectors)
      return random() % (touching.size() + 1);
    const auto last = std::find_if(touching.rbegin(), touching.rend(),
                                   [&](const Change* change) { return chosen.contains(change); });
    return static_cast<std::size_t>(touching.rend() - last);
  };
  if (kept == Kept::everything) {
    durable_ = contents_;
  } else if (kept != Kept::nothing) {
    for (const auto& [sector, touching] : changes_by_sector()) {
      const std::size_t count = received(touching);
      for (std::size_t i = 0; i < count; ++i) {
        apply_to_durable(*touching[i], sector * sector_size, (sector + 1) * sector_size);
      }
    }
  }
  contents_ = durable_;
  changes_.clear();
  is_locked = false;
}

}  // namespace simulation
