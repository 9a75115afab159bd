#include "scarce_memory.h"

#include <algorithm>
#include <cstdlib>
#include <new>
#include <utility>

namespace {

constexpr int any_number = -1;

int allocations_left = any_number;
std::size_t largest = 0;

}  // namespace

void* operator new(std::size_t size) {
  const bool fails = allocations_left == 0;
  allocations_left = std::max(allocations_left - 1, any_number);
  void* const room = fails ? nullptr : std::malloc(std::max<std::size_t>(size, 1));
  if (room == nullptr)
    throw std::bad_alloc();
  largest = std::max(largest, size);
  return room;
}

void operator delete(void* room) noexcept {
  std::free(room);
}

void operator delete(void* room, std::size_t) noexcept {
  std::free(room);
}

std::size_t largest_allocation() {
  return std::exchange(largest, 0);
}

ScarceMemory::ScarceMemory(int allocations) {
  allocations_left = std::max(allocations, any_number);
}

ScarceMemory::~ScarceMemory() {
  allocations_left = any_number;
}
