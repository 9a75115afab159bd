// How the inputs of the targets are made up, for the targets and for what makes the first inputs.

#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <span>

#include "common/crc32.h"
#include "databases.h"

namespace fuzz {

// Inspection: a byte that names a file, then what that file holds.
struct InspectedFile {
  std::size_t shape;
  Bytes Files::*file;
};
inline constexpr InspectedFile inspected_files[] = {
    {0, &Files::tsdb},
    {0, &Files::mdb},
    {0, &Files::journal},
    {1, &Files::mdb},
};
constexpr const InspectedFile& inspected_file(std::uint8_t number) {
  return inspected_files[number % std::size(inspected_files)];
}

// The creation tool: the words of the command line in one line, then the answers on the console. A run that
// makes whole databases takes a thousand times as long as one that stops at a full disk, so only one input in
// five hundred gets the room. The checksum decides: what a mutant of such an input gets is open again.
inline bool gets_room(std::span<const std::byte> input) {
  return security::crc32(input) % 512 == 0;
}

inline Bytes to_bytes(const void* data, std::size_t size) {
  const auto* first = static_cast<const std::byte*>(data);
  return {first, first + size};
}

}  // namespace fuzz
