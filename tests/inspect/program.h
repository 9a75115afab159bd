// The program, run in the process of the test.

#pragma once

#include <sstream>
#include <string>
#include <vector>

#include "inspect/command_line.h"

namespace inspect_test {

struct Outcome {
  int status;
  std::string out;
  std::string err;
};

inline Outcome run(const std::vector<const char*>& arguments) {
  std::ostringstream out;
  std::ostringstream err;
  const int status = inspect::run(arguments, out, err);
  return {status, out.str(), err.str()};
}

}  // namespace inspect_test
