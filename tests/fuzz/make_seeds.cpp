// Writes the first inputs of every fuzz target below a directory: make_seeds DIRECTORY

#include <filesystem>
#include <fstream>
#include <string>

#include "common/crc32.h"
#include "targets.h"

int main(int argc, char** argv) {
  if (argc != 2)
    return 1;
  for (const fuzz::Target& target : fuzz::targets) {
    const std::filesystem::path directory = std::filesystem::path(argv[1]) / target.name;
    std::filesystem::create_directories(directory);
    for (const fuzz::Bytes& input : target.first_inputs()) {
      // The same input always gets the same name.
      std::ofstream file(directory / ("seed-" + std::to_string(security::crc32(input))), std::ios::binary);
      file.exceptions(std::ios::badbit | std::ios::failbit);
      for (const std::byte byte : input)
        file.put(static_cast<char>(byte));
    }
  }
  return 0;
}
