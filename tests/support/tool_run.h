// A run of the creation tool within the test's own process.

#pragma once

#include <array>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "createdb/driver.h"

namespace support {

// Lets the streams of the process read and write strings for as long as it lives.
class RedirectedStreams {
 public:
  explicit RedirectedStreams(const std::string& input) : input_(input) {}
  ~RedirectedStreams() {
    std::cin.rdbuf(before_[0]);
    std::cout.rdbuf(before_[1]);
    std::cerr.rdbuf(before_[2]);
  }
  RedirectedStreams(const RedirectedStreams&) = delete;
  RedirectedStreams& operator=(const RedirectedStreams&) = delete;

  std::string error_text() const { return error_.str(); }

 private:
  std::istringstream input_;
  std::ostringstream output_;
  std::ostringstream error_;
  std::array<std::streambuf*, 3> before_ = {std::cin.rdbuf(input_.rdbuf()), std::cout.rdbuf(output_.rdbuf()),
                                            std::cerr.rdbuf(error_.rdbuf())};
};

struct ToolRun {
  int status;
  std::string last_words;  // the last line on standard error
};

// The words stand behind the program's name. What is open at the end stays so.
inline ToolRun run_tool(std::vector<std::string> words, const std::string& answers = {}) {
  const RedirectedStreams streams(answers);
  words.insert(words.begin(), "quenor-createdb");
  std::vector<char*> argv;
  for (std::string& word : words)
    argv.push_back(word.data());
  argv.push_back(nullptr);
  const int status = createdb::run(static_cast<int>(words.size()), argv.data());
  std::string text = "\n" + streams.error_text();
  if (text.ends_with('\n'))
    text.pop_back();
  return {status, text.substr(text.rfind('\n') + 1)};
}

}  // namespace support
