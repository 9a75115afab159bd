#include "simulation/machine.h"

#include <algorithm>
#include <cstring>

namespace simulation {
namespace {

// Copies the part that two placed runs of bytes have in common.
void copy_common(std::uint64_t from_position, std::span<const std::byte> from, std::uint64_t to_position,
                 std::span<std::byte> to) {
  const std::uint64_t begin = std::max(from_position, to_position);
  const std::uint64_t end = std::min(from_position + from.size(), to_position + to.size());
  if (begin < end)
    std::ranges::copy(from.subspan(begin - from_position, end - begin), &to[begin - to_position]);
}

std::uint64_t next_sector(std::uint64_t position) {
  return (position / sector_size + 1) * sector_size;
}

}  // namespace

void StoredFile::replace(std::span<const std::byte> bytes) {
  contents.assign(bytes.begin(), bytes.end());
  durable = contents;
  changes.clear();
}

std::size_t StoredFile::read(std::uint64_t position, std::span<std::byte> buffer) const {
  if (position >= contents.size())
    return 0;
  const auto wanted = buffer.first(std::min<std::uint64_t>(buffer.size(), contents.size() - position));
  copy_common(0, contents, position, wanted);
  for (const View* view : views)
    copy_common(view->position, view->bytes, position, wanted);
  return wanted.size();
}

void StoredFile::write(std::uint64_t position, std::span<const std::byte> bytes) {
  contents.resize(std::max<std::uint64_t>(contents.size(), position + bytes.size()));
  copy_common(position, bytes, 0, contents);
  for (View* view : views)
    copy_common(position, bytes, view->position, view->bytes);
  changes.push_back({position, {bytes.begin(), bytes.end()}});
}

void StoredFile::take_over(const View& view, std::mt19937_64* coin) {
  const std::uint64_t view_end = view.position + view.bytes.size();
  for (std::uint64_t begin = view.position; begin < view_end; begin = next_sector(begin)) {
    const std::uint64_t length = std::min(next_sector(begin), view_end) - begin;
    const auto stored = std::span(view.bytes).subspan(begin - view.position, length);
    if (std::memcmp(stored.data(), &contents[begin], length) == 0)
      continue;
    if (coin == nullptr || (*coin)() % 2 == 0)
      write(begin, std::vector<std::byte>(stored.begin(), stored.end()));
  }
}

void StoredFile::make_durable(const Change& change, std::uint64_t from, std::uint64_t to) {
  const std::uint64_t begin = std::max(from, change.position);
  const std::uint64_t end = std::min(to, change.position + change.bytes.size());
  durable.resize(std::max<std::uint64_t>(durable.size(), end));
  copy_common(begin, std::span(change.bytes).subspan(begin - change.position, end - begin), 0, durable);
}

void StoredFile::sync() {
  for (const Change& change : changes)
    make_durable(change, 0, contents.size());
  changes.clear();
}

void StoredFile::lose_views() {
  for (const View* view : views)
    take_over(*view);  // a store may have reached the medium at any time
  views.clear();
}

void StoredFile::power_cut(Kept kept, std::mt19937_64& random, std::size_t missing) {
  struct Sector {
    std::vector<const Change*> changes;
    std::size_t received = 0;  // with a change that it takes it takes the earlier ones (S5)
  };
  std::map<std::uint64_t, Sector> sectors;
  for (std::size_t i = 0; i < changes.size(); ++i) {
    const bool is_received = kept == Kept::random_writes ? random() % 2 == 0 : i != missing;
    const std::uint64_t end = changes[i].position + changes[i].bytes.size();
    for (std::uint64_t at = changes[i].position; at < end; at = next_sector(at)) {
      Sector& sector = sectors[at / sector_size];
      sector.changes.push_back(&changes[i]);
      if (is_received)
        sector.received = sector.changes.size();
    }
  }
  for (auto& [number, sector] : sectors) {
    if (kept == Kept::random_sectors)
      sector.received = random() % (sector.changes.size() + 1);
    for (std::size_t i = 0; i < sector.received && kept != Kept::nothing; ++i)
      make_durable(*sector.changes[i], number * sector_size, (number + 1) * sector_size);
  }
  if (kept == Kept::everything)
    durable = contents;
  contents = durable;
  changes.clear();
  is_locked = false;
}

Verdict Machine::admit(Event event) {
  if (write_back) {
    for (const auto& [name, file] : names) {
      for (const View* view : file->views)
        file->take_over(*view, &*write_back);
    }
  }
  Verdict verdict;
  for (Fault& fault : faults) {
    if (!event.matches(fault.operation, fault.path_end) || fault.occurrence == 0)
      continue;
    fault.occurrence -= 1;
    if (fault.occurrence != 0)
      continue;
    if (fault.power_fails)
      turn_power_off();
    if (fault.lasting || fault.power_fails)
      fault.occurrence = 1;
    if (fault.transfer_limit && event.transfers()) {
      verdict.transfer_limit = std::min(verdict.transfer_limit, *fault.transfer_limit);
    } else if (verdict.code == 0) {
      verdict.code = fault.code;
    }
  }
  events.push_back(std::move(event));
  return verdict;
}

StoredFile& Machine::file(std::string_view path) const {
  return *names.at(with_slashes(path));
}

std::size_t Machine::unsynced_count() const {
  std::size_t count = 0;
  for (const auto& [name, file] : names)
    count += file->changes.size();
  return count;
}

void Machine::turn_power_off() {
  power_is_off = true;
  for (const auto& [name, file] : names)
    file->lose_views();
}

void Machine::power_cut(Policy policy) {
  turn_power_off();
  power_is_off = false;
  boot += 1;
  std::mt19937_64 random(policy.seed);
  const std::size_t unsynced = unsynced_count();
  std::size_t missing = ~std::size_t{0};
  if (policy.kept == Kept::all_but_one && unsynced != 0)
    missing = policy.seed % unsynced;
  for (const auto& [name, file] : names) {
    const std::size_t count = file->changes.size();
    file->power_cut(policy.kept, random, missing);
    missing -= count;  // wraps once the file has been met
  }
  if (policy.kept == Kept::everything || policy.kept == Kept::all_but_one) {
    durable_names = names;
  } else if (policy.kept != Kept::nothing) {
    for (const auto& [name, file] : names) {
      if (random() % 2 == 0)
        durable_names.insert_or_assign(name, file);
    }
  }
  names = durable_names;
}

std::shared_ptr<Machine> Machine::fork() const {
  const auto twin = std::make_shared<Machine>(*this);
  std::map<const StoredFile*, std::shared_ptr<StoredFile>> copies;
  for (Names* each : {&twin->names, &twin->durable_names}) {
    for (auto& [name, file] : *each) {
      std::shared_ptr<StoredFile>& copy = copies[file.get()];
      if (copy == nullptr) {
        copy = std::make_shared<StoredFile>(*file);
        copy->lose_views();
        copy->is_locked = false;
      }
      file = copy;
    }
  }
  return twin;
}

std::string with_slashes(std::string_view path) {
  std::string result(path);
  std::ranges::replace(result, '\\', '/');
  while (result.size() > 1 && result.back() == '/')
    result.pop_back();
  return result;
}

}  // namespace simulation
