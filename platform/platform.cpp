#include "platform/platform.h"

#include "native.h"

namespace platform {
namespace {

System* current = nullptr;

}  // namespace

System& system() {
  return current != nullptr ? *current : native_system();
}

System* replace_system(System* replacement) {
  return std::exchange(current, replacement);
}

}  // namespace platform
