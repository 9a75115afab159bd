// What the Windows files share.

#pragma once

#ifndef NOMINMAX
#define NOMINMAX
#endif
#define WIN32_LEAN_AND_MEAN
#include <windows.h>

#include <memory>
#include <string>

#include "platform/platform.h"

namespace platform {

// The error of the call that has just failed; never a success, even where the system left no code.
inline Status last_error() {
  const DWORD code = ::GetLastError();
  return Status{code != ERROR_SUCCESS ? code : ERROR_GEN_FAILURE};
}

// The outcome of a call that returns a truth value.
inline Status outcome(BOOL succeeded) {
  return succeeded != FALSE ? Status{} : last_error();
}

// The two words in which the system takes a 64-bit number.
inline DWORD low_word(std::uint64_t value) {
  return static_cast<DWORD>(value & 0xFFFF'FFFF);
}
inline DWORD high_word(std::uint64_t value) {
  return static_cast<DWORD>(value >> 32);
}

inline constexpr DWORD no_sharing = 0;

// Opens for random positions.
Result<std::unique_ptr<File>> open_file(const std::string& path, DWORD access, DWORD share_mode,
                                        DWORD disposition);

}  // namespace platform
