// Memory that runs out when a test wants it to. Of one thread.

#pragma once

#include <cstddef>

// The most bytes that one `new` has given out since the last call.
std::size_t largest_allocation();

// As long as it lives, one `new` fails: the one after this many, or none for a number below 0.
class ScarceMemory {
 public:
  explicit ScarceMemory(int allocations);
  ~ScarceMemory();
  ScarceMemory(const ScarceMemory&) = delete;
  ScarceMemory& operator=(const ScarceMemory&) = delete;
};
