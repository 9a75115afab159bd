// The bytes are what a user types: a line with the words of the command line, and the answers. /db is an
// empty directory.

#include <iostream>
#include <sstream>
#include <streambuf>
#include <string>
#include <vector>

#include "createdb/driver.h"
#include "inputs.h"

namespace {

constexpr std::uint64_t room_for_databases = 24 << 20;
constexpr std::uint64_t room_for_nothing = 32 << 10;

// Takes the output, which nobody reads.
class Discard : public std::streambuf {
  int_type overflow(int_type character) override { return traits_type::not_eof(character); }
  std::streamsize xsputn(const char*, std::streamsize count) override { return count; }
};

void run_tool(const std::string& command_line, std::istream& answers) {
  std::istringstream line(command_line);
  std::vector<std::string> words = {"quenor-createdb"};
  for (std::string word; line >> word;)
    words.push_back(word);
  std::vector<char*> argv;
  for (std::string& word : words)
    argv.push_back(word.data());
  argv.push_back(nullptr);
  std::cin.rdbuf(answers.rdbuf());
  (void)createdb::run(static_cast<int>(words.size()), argv.data());
  std::cin.rdbuf(nullptr);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Discard discard;
  std::cout.rdbuf(&discard);
  std::cerr.rdbuf(&discard);
  fuzz::Computer computer;
  computer.set_disk_room(fuzz::gets_room(std::as_bytes(std::span(data, size))) ? room_for_databases
                                                                               : room_for_nothing);
  std::istringstream typed(std::string(data, data + size));
  std::string command_line;
  std::getline(typed, command_line);
  run_tool(command_line, typed);
  return 0;
}
