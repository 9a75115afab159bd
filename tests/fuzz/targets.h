// What is fed with hostile bytes.

#pragma once

#include <span>

#include "databases.h"

namespace fuzz {

struct Target {
  const char* name;
  void (*try_input)(const Bytes& input);
  // Makes the checksums in a mutant fit again; none for a target that reads text.
  void (*fit)(std::span<std::byte> input);
  std::vector<Bytes> (*first_inputs)();
};

extern const Target targets[4];

}  // namespace fuzz
