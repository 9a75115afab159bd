#include "createdb/placement.h"

#include <iostream>

#include "platform/platform.h"

namespace createdb {

Placement check_placement(const std::string& path) {
  const auto is_directory = platform::system().is_directory(path);
  if (!is_directory.ok()) {
    std::cout << "Cannot stat given path\n";
    return Placement::unusable;
  }
  if (!is_directory.value()) {
    std::cout << "Path not a directory or block device\n";
    return Placement::unusable;
  }
  return Placement::directory;
}

}  // namespace createdb
