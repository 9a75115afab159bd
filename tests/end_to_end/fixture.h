// The creation tool as a user runs it, and what the tests expect of the files in "db".

#pragma once

#include <gmock/gmock.h>

#include "program.h"

using real::Outcome;

// What standard error says before the time series database grows, and answers for 128 MiB of it in the
// smallest blocks, which are not written before anybody can look.
inline const std::string growth = "Initializing database...";
inline const std::string large = "db i 4 2 1024 128 db ";

inline const std::string title =
    "Quenor Database Creation Tool\n---------------------------------------------\n";
inline const std::string no_answer = "Cannot read an answer from standard input\n";

class EndToEnd : public real::InDirectory {
 protected:
  static Outcome run(const std::string& arguments, const std::string& input = {},
                     const std::string& before = {}) {
    return real::run(real::createdb, arguments, input, before);
  }

  // The text of a file in transcripts/, with `number` for %.
  static std::string transcript(const std::string& name, const std::string& number = {}) {
    std::string text = real::contents(QUENOR_TRANSCRIPTS "/" + name + ".txt");
    if (const std::size_t at = text.find('%'); at != std::string::npos)
      text.replace(at, 1, number);
    return text;
  }

  // Their paths begin in "db".
  static bool exists(const std::string& path) { return std::filesystem::exists("db/" + path); }
  static void write_file(const std::string& path, const std::string& contents) {
    std::ofstream("db/" + path, std::ios::binary) << contents;
  }
  static std::string file(const std::string& path) { return real::contents("db/" + path); }

  static bool has_no_database() {
    return !exists("main.odb") && !exists("main.odbj") && !exists("main.tsdb");
  }
  static void remove_files() {
    for (const auto* path : {"main.odb", "main.odbj", "main.tsdb", "j/main.odbj", "t/main.tsdb"})
      std::filesystem::remove(std::string("db/") + path);
  }
};
