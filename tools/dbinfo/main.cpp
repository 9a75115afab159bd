#include <iostream>
#include <span>

#include "inspect/command_line.h"

int main(int argc, char** argv) {
  const std::span<const char* const> words(argv, static_cast<std::size_t>(argc));
  return inspect::run(words.empty() ? words : words.subspan(1), std::cout, std::cerr);
}
