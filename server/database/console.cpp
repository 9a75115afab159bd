#include "createdb/console.h"

#include <algorithm>
#include <iostream>
#include <limits>

#include "createdb/end_of_run.h"

namespace createdb {
namespace {

constexpr int no_character = std::istream::traits_type::eof();

bool is_digit(int character) {
  return character >= '0' && character <= '9';
}

[[noreturn]] void fail_without_answer() {
  fail("Cannot read an answer from standard input");
}

}  // namespace

void show_question(std::string_view question) {
  std::cout << question << std::flush;
}

std::optional<std::string> AnswerReader::word_if_any() {
  std::string found;
  if (!(input_ >> found))
    return std::nullopt;
  return found;
}

std::string AnswerReader::word() {
  auto found = word_if_any();
  if (!found)
    fail_without_answer();
  return *found;
}

char AnswerReader::character() {
  char found = '\0';
  if (!(input_ >> found))
    fail_without_answer();
  return found;
}

std::optional<std::uint32_t> AnswerReader::number() {
  static constexpr std::uint64_t largest = std::numeric_limits<std::uint32_t>::max();
  if (!(input_ >> std::ws) || input_.peek() == no_character)
    fail_without_answer();
  if (input_.peek() == '+')
    input_.get();
  bool has_digits = false;
  std::uint64_t value = 0;
  for (; is_digit(input_.peek()); has_digits = true) {
    const auto digit = static_cast<std::uint64_t>(input_.get() - '0');
    value = std::min(value * 10 + digit, largest + 1);
  }
  if (has_digits && value <= largest)
    return static_cast<std::uint32_t>(value);
  input_.setstate(std::ios::failbit);
  return std::nullopt;
}

}  // namespace createdb
