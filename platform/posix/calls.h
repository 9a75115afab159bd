// What the POSIX files share: how a path is spelt and how a call is made.

#pragma once

#include <cerrno>
#include <memory>
#include <string>

#include "platform/platform.h"

namespace platform {

// The error of the call that has just failed.
inline Status last_error() {
  return Status{static_cast<std::uint32_t>(errno)};
}

// The outcome of a call that returns 0 or -1.
inline Status outcome(int returned) {
  return returned == 0 ? Status{} : last_error();
}

// Repeats a call that returns -1 for as long as a signal interrupts it.
template <typename Call>
auto uninterrupted(Call call) {
  for (;;) {
    const auto returned = call();
    if (returned != -1 || errno != EINTR)
      return returned;
  }
}

// The path as this system spells it: with slashes only.
std::string native_path(std::string path);

// Opens with `flags`, the access among them, and those that every file gets; takes the lock that `sharing`
// asks for.
Result<std::unique_ptr<File>> open_file(const std::string& path, int flags, Sharing sharing);

}  // namespace platform
