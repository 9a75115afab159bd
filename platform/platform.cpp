#include "platform/platform.h"

#include <algorithm>

#include "native.h"

namespace platform {
namespace {

System* current = nullptr;

}  // namespace

std::span<const std::byte> Mapping::view() {
  return bytes();
}

Status Mapping::write(std::size_t offset, std::span<const std::byte> source) {
  std::ranges::copy(source, bytes().subspan(offset).begin());
  return {};
}

void Mapping::read(std::size_t offset, std::span<std::byte> destination) {
  std::ranges::copy(view().subspan(offset, destination.size()), destination.begin());
}

void File::start_sync() {}

System& system() {
  return current != nullptr ? *current : native_system();
}

System* replace_system(System* replacement) {
  return std::exchange(current, replacement);
}

}  // namespace platform
