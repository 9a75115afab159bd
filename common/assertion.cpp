#include "common/assertion.h"

#include <cstdlib>
#include <iostream>

void assertion_failed(std::string_view text) {
  std::cerr << "Assertion failed: " << text << '\n' << std::flush;
  std::abort();
}
