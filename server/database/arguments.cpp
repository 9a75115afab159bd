#include "createdb/arguments.h"

#include <algorithm>
#include <iostream>
#include <string_view>

#include "createdb/end_of_run.h"
#include "createdb/placement.h"

namespace createdb {
namespace {

constexpr std::string_view usage_lines[] = {
    "Usage:",
    " -h        : print this help screen",
    " -i        : interactive configuration",
    " -n        : omit 'admin' user creation",
    " -d {path} : create default database at {path}",
    " - - - - - - advanced options - - - - - - - - ",
    " -c        : create completely empty database",
    " -f        : force, do not ask questions",
    "",
};

constexpr std::string_view help_option = "-h";
constexpr std::string_view placement_option = "-d";

struct Flag {
  std::string_view option;
  bool Arguments::*member;
};

constexpr Flag flags[] = {
    {"-i", &Arguments::interactive},
    {"-n", &Arguments::no_admin},
    {"-c", &Arguments::empty},
    {"-f", &Arguments::force},
};

std::string usable_path(std::string_view word) {
  std::string path(word);
  if (check_placement(path) == Placement::unusable)
    fail("Cannot stat path \"", path, '"');
  std::cerr << "placement path: \"" << path << "\"\n";
  return path;
}

void set_flag(Arguments& arguments, std::string_view word) {
  const auto* flag = std::ranges::find_if(flags, [&](const Flag& f) { return word.starts_with(f.option); });
  if (flag == std::ranges::end(flags))
    fail("Unknown or misplaced argument: \"", word, '"');
  arguments.*flag->member = true;
}

}  // namespace

void print_usage() {
  for (const auto line : usage_lines)
    std::cerr << line << '\n';
}

Arguments parse_arguments(std::span<char* const> words) {
  Arguments arguments;
  for (std::size_t i = 0; i < words.size(); ++i) {
    const std::string_view word = words[i];
    if (word.starts_with(help_option)) {
      print_usage();
      throw EndOfRun{status_success};
    }
    if (!word.starts_with(placement_option)) {
      set_flag(arguments, word);
      continue;
    }
    // A path glued to the option is taken with the option's two characters, so it rarely exists.
    if (word == placement_option && ++i == words.size())
      break;
    arguments.placement_path = usable_path(words[i]);
  }
  return arguments;
}

}  // namespace createdb
