#include "machine.h"

#include <algorithm>
#include <stdexcept>

namespace simulation {
namespace {

bool concerns(const Fault& fault, const Event& event) {
  if (fault.operation != Operation::any && fault.operation != event.operation)
    return false;
  return event.path.ends_with(fault.path_end);
}

// Names that differ between the two lists survive by the flip of a coin.
void settle_names(Machine& machine, Kept kept, std::mt19937_64& random) {
  if (kept == Kept::everything || kept == Kept::all_but_one) {
    machine.durable_names = machine.names;
  } else if (kept != Kept::nothing) {
    for (const auto& [name, file] : machine.names) {
      if (random() % 2 == 0)
        machine.durable_names.insert_or_assign(name, file);
    }
  }
  machine.names = machine.durable_names;
}

}  // namespace

Verdict Machine::admit(Event event) {
  if (write_back) {
    for (const auto& [name, file] : names)
      file->take_over_some(*write_back);
  }
  Verdict verdict;
  for (Fault& fault : faults) {
    if (!concerns(fault, event))
      continue;
    if (fault.occurrence > 1) {
      fault.occurrence -= 1;
      continue;
    }
    if (fault.occurrence == 0)
      continue;  // spent
    if (fault.power_fails)
      turn_power_off();
    if (!fault.lasting && !fault.power_fails)
      fault.occurrence = 0;
    if (fault.transfer_limit) {
      verdict.transfer_limit = std::min(verdict.transfer_limit, *fault.transfer_limit);
    } else if (verdict.code == 0) {
      verdict.code = fault.code;
    }
  }
  event.code = verdict.code;
  events.push_back(std::move(event));
  return verdict;
}

StoredFile& Machine::file(std::string_view path) const {
  const auto found = names.find(with_slashes(path));
  if (found == names.end())
    throw std::out_of_range("no simulated file " + std::string(path));
  return *found->second;
}

void Machine::turn_power_off() {
  if (power_is_off)
    return;
  power_is_off = true;
  for (const auto& [name, file] : names)
    file->lose_views();
}

void Machine::power_cut(Policy policy) {
  turn_power_off();
  power_is_off = false;
  std::mt19937_64 random(policy.seed);
  std::size_t unsynced = 0;
  for (const auto& [name, file] : names)
    unsynced += file->unsynced_count();
  std::size_t missing = unsynced != 0 ? policy.seed % unsynced : 0;
  for (const auto& [name, file] : names) {
    const std::size_t count = file->unsynced_count();
    file->power_cut(policy.kept, random, missing < count ? std::optional(missing) : std::nullopt);
    missing -= count;  // wraps once the file has been met
  }
  settle_names(*this, policy.kept, random);
  boot += 1;
}

std::shared_ptr<Machine> Machine::fork() const {
  const auto twin = std::make_shared<Machine>(*this);
  std::map<const StoredFile*, std::shared_ptr<StoredFile>> copies;
  for (Names* each : {&twin->names, &twin->durable_names}) {
    for (auto& [name, file] : *each) {
      std::shared_ptr<StoredFile>& copy = copies[file.get()];
      if (copy == nullptr)
        copy = std::make_shared<StoredFile>(*file);
      file = copy;
    }
  }
  for (const auto& [original, copy] : copies) {
    copy->lose_views();
    copy->is_locked = false;
  }
  return twin;
}

std::string with_slashes(std::string_view path) {
  std::string result(path);
  std::replace(result.begin(), result.end(), '\\', '/');
  while (result.size() > 1 && result.back() == '/')
    result.pop_back();
  return result;
}

std::string directory_of(std::string_view path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string_view::npos)
    return ".";
  return std::string(path.substr(0, std::max<std::size_t>(slash, 1)));
}

}  // namespace simulation
