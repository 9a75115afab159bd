// Writes the first inputs of every fuzz target below a directory: make_seeds DIRECTORY

#include <filesystem>
#include <fstream>
#include <string>

#include "inputs.h"

namespace {

namespace fs = std::filesystem;

// The same input always gets the same name.
void add(const fs::path& directory, const fuzz::Bytes& input) {
  fs::create_directories(directory);
  std::ofstream file(directory / ("seed-" + std::to_string(security::crc32(input))), std::ios::binary);
  file.exceptions(std::ios::badbit | std::ios::failbit);
  for (const std::byte byte : input)
    file.put(static_cast<char>(byte));
}

constexpr const char* typed_inputs[] = {
    "-h\n",
    "dbinfo --check --nodes --json /db --journal /db/main.odbj\n",
    "dbinfo --node=0.1 --report page.html --journal-file=/j -- /db\n",
    "-d /db\nn\n",
    "-x /db\n",
    "-d /db -f -c\n",
    "-d /db -f -n\n",
    "-d /db\nyes\n",
    "-i -f\n/db i 4 /db 2 1024 1\n",
    "-i -d /db -c\n/nowhere /db x e /db +5 y /db 6 3 3000 4096 0 2 /db y\n",
    "-i\n/db e /db 3 129 4 n /db i 8 y /db 5 16384 4294967295 y\n",
    "-i\n/db i four\n",
};

// With a number behind it that nobody reads, so that it gets room for its databases.
fuzz::Bytes with_room(const std::string& typed) {
  for (int number = 0;; ++number) {
    const std::string text = typed + std::to_string(number);
    fuzz::Bytes input = fuzz::to_bytes(text.data(), text.size());
    if (fuzz::gets_room(input))
      return input;
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2)
    return 1;
  const fs::path directory = argv[1];
  for (const mdb_test::MdbShape& shape : fuzz::shapes) {
    const fuzz::Files files = fuzz::make_files(shape);
    add(directory / "mdb", files.mdb);
    if (!files.journal.empty())
      add(directory / "journal", files.journal);
  }
  add(directory / "journal", fuzz::make_empty_journal());
  for (std::uint8_t number = 0; number < std::size(fuzz::inspected_files); ++number) {
    const fuzz::InspectedFile& inspected = fuzz::inspected_file(number);
    fuzz::Bytes input = fuzz::make_files(fuzz::shapes[inspected.shape]).*inspected.file;
    input.insert(input.begin(), std::byte{number});
    add(directory / "inspect", input);
  }
  for (const std::string typed : typed_inputs) {
    add(directory / "input", fuzz::to_bytes(typed.data(), typed.size()));
    add(directory / "input", with_room(typed));
  }
  return 0;
}
