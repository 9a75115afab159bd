// The command line.

#pragma once

#include <optional>
#include <span>
#include <string>

namespace createdb {

struct Arguments {
  bool interactive = false;
  bool empty = false;     // no default content at all
  bool no_admin = false;  // no administrator among the default content
  bool force = false;
  std::optional<std::string> placement_path;  // a directory, or was one when it was checked
};

// Reads the arguments after the program's name; each is told by its first two characters. Ends the run for
// the usage, an argument that is unknown and a path that cannot be used.
Arguments parse_arguments(std::span<char* const> words);

// Prints the usage on standard error.
void print_usage();

}  // namespace createdb
