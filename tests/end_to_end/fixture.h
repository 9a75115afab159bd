// A directory of its own for every test, and what the tests expect of the files in it.

#pragma once

#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>

#include "reader.h"
#include "tool.h"

// What standard error says before the time series database grows, and answers for 128 MiB of it in the
// smallest blocks, which are not written before anybody can look.
inline const std::string growth = "Initializing database...";
inline const std::string large = "$ i 4 2 1024 128 $ ";

class EndToEnd : public ::testing::Test {
 protected:
  // Wine speaks on standard error while it sets itself up, the first time that it runs.
  static void SetUpTestSuite() {
    if (tool::is_windows_program())
      tool::run({"-h"});
  }
  EndToEnd() { std::filesystem::create_directory(directory_); }
  ~EndToEnd() override { std::filesystem::remove_all(directory_); }

  // A text with $ for the directory as the tool is told, and % for `number`.
  std::string text(std::string pattern, const std::string& number = {}) const {
    for (std::size_t at = 0; (at = pattern.find_first_of("$%", at)) != std::string::npos;)
      pattern.replace(at, 1, pattern[at] == '$' ? told_directory() : number);
    return pattern;
  }
  tool::Arguments texts(tool::Arguments patterns) const {
    for (auto& pattern : patterns)
      pattern = text(pattern);
    return patterns;
  }

  // The same with a text in a file of transcripts/.
  std::string transcript(const std::string& name, const std::string& number = {}) const {
    const auto contents = reader::read_file(QUENOR_TRANSCRIPTS "/" + name + ".txt");
    return text(std::string(contents.begin(), contents.end()), number);
  }

  std::filesystem::path local(const std::string& file_name) const { return directory_ / file_name; }
  bool exists(const std::string& file_name) const { return std::filesystem::exists(local(file_name)); }
  void write_file(const std::string& file_name, const std::string& contents) const {
    std::ofstream(local(file_name), std::ios::binary) << contents;
  }
  reader::Bytes file(const std::string& file_name) const {
    return reader::read_file(local(file_name).string());
  }
  bool has_no_database() const { return !exists("main.odb") && !exists("main.odbj") && !exists("main.tsdb"); }

  void remove_files() const {
    for (const auto* name : {"main.odb", "main.odbj", "main.tsdb", "j/main.odbj", "t/main.tsdb"})
      std::filesystem::remove(local(name));
  }

 private:
  std::string told_directory() const {
    std::string path = directory_.string();
    if (!tool::is_windows_program())
      return path;
    std::replace(path.begin(), path.end(), '/', '\\');
    return "Z:" + path;
  }

  const std::filesystem::path directory_ = std::filesystem::temp_directory_path() /
                                           ("quenor-end-to-end-" + std::to_string(::getpid()) + "-" +
                                            ::testing::UnitTest::GetInstance()->current_test_info()->name());
};
