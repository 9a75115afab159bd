// How the tool ends before its work is done: from anywhere, by an exception that only the driver catches.

#pragma once

#include <iostream>

#include "common/text.h"

namespace createdb {

struct EndOfRun {
  int status;  // what the process returns
};

inline constexpr int status_success = 0;
inline constexpr int status_failure = 1;

// Prints the concatenated pieces as one line on standard error and ends the run with status_failure.
template <typename... Pieces>
[[noreturn]] void fail(const Pieces&... pieces) {
  std::cerr << text::concat(pieces...) << '\n';
  throw EndOfRun{status_failure};
}

}  // namespace createdb
