// Questions and answers on the console.

#pragma once

#include <cstdint>
#include <istream>
#include <optional>
#include <string>
#include <string_view>

namespace createdb {

// Shows a question on standard output; the answer follows on the same line.
void show_question(std::string_view question);

// Takes the answers off a stream. Once the input has ended, or a number was asked for and something else
// was found, nothing more can be read: then word(), character() and number() say so on standard error and
// end the run.
class AnswerReader {
 public:
  explicit AnswerReader(std::istream& input) : input_(input) {}

  // The next run of characters that are not white space.
  std::string word();
  // The same, or nothing when nothing more can be read.
  std::optional<std::string> word_if_any();
  // The next character that is not white space.
  char character();
  // The next number: an optional plus sign and digits. Nothing when the text is no number that fits.
  std::optional<std::uint32_t> number();

 private:
  std::istream& input_;  // its failed state is what remembers that nothing more can be read
};

}  // namespace createdb
