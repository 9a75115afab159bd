// The bytes are what a user types: a line with the words of the command line, and the answers. /db is an
// empty directory. A line that begins with the word "dbinfo" is for that program.

#include <algorithm>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "inputs.h"
#include "inspect/command_line.h"
#include "tool_run.h"

namespace {

constexpr std::uint64_t room_for_databases = 24 << 20;
constexpr std::uint64_t room_for_nothing = 32 << 10;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Computer computer;
  computer.set_disk_room(fuzz::gets_room(std::as_bytes(std::span(data, size))) ? room_for_databases
                                                                               : room_for_nothing);
  const std::string typed(data, data + size);
  const std::size_t line_end = std::min(typed.find('\n'), typed.size());
  std::istringstream line(typed.substr(0, line_end));
  std::vector<std::string> words;
  for (std::string word; line >> word;)
    words.push_back(word);
  if (!words.empty() && words[0] == "dbinfo") {
    std::vector<const char*> rest;
    std::ranges::transform(words.begin() + 1, words.end(), std::back_inserter(rest),
                           [](const std::string& word) { return word.c_str(); });
    std::ostringstream out;
    (void)inspect::run(rest, out, out);
    return 0;
  }
  (void)support::run_tool(words, typed.substr(std::min(line_end + 1, typed.size())));
  return 0;
}
