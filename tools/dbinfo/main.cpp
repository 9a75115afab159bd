#include <iostream>
#include <span>

#include "inspect/command_line.h"
#include "platform/platform.h"

int main(int argc, char** argv) {
  // So that a report that meets a limit is removed, and a closed pipe has a status of its own.
  platform::system().ignore_write_signals();
  const std::span<const char* const> words(argv, static_cast<std::size_t>(argc));
  return inspect::run(words.empty() ? words : words.subspan(1), std::cout, std::cerr);
}
