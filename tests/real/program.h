// A program of a build as a process of its own: of this build, or of the Windows one, under Wine, when the
// environment variable QUENOR_WINDOWS_BUILD holds its folder. A run that takes a minute is ended.

#pragma once

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace real {

inline const std::string createdb = "bin/quenor-createdb";

inline const char* windows_build() {
  return std::getenv("QUENOR_WINDOWS_BUILD");
}

inline bool under_wine() {
  return windows_build() != nullptr;
}

// Replaces the shell by the program with this path in the build.
inline std::string command_line(const std::string& name, const std::string& arguments) {
  return "exec " +
         (!under_wine() ? "'" QUENOR_BUILD "/" + name + "' "
                        : "wine '" + (windows_build() + ("/" + name)) + ".exe' ") +
         arguments;
}

struct Outcome {
  int status;            // the exit status, or minus the number of the signal that ended the program
  std::string out, err;  // line ends as single newlines
};

inline std::string without_returns(std::string text) {
  std::erase(text, '\r');
  return text;
}

// Nothing without a file.
inline std::string contents(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

// What it writes goes to files in the current directory.
class Program {
 public:
  // `input` is all that it can read; the shell does what is to be done `before`.
  Program(const std::string& name, const std::string& arguments, const std::string& input = {},
          const std::string& before = {}) {
    const std::string streams = " <input >" + out_ + " 2>" + err_;
    const std::string line = before + command_line(name, streams + " " + arguments);
    std::ofstream("input", std::ios::binary) << input;
    std::ofstream{out_};
    std::ofstream{err_};
    process_ = ::fork();
    if (process_ == 0) {
      ::signal(SIGPIPE, SIG_DFL);  // what is ignored here would be ignored there
      ::alarm(60);
      ::execl("/bin/sh", "sh", "-c", line.c_str(), nullptr);
      ::_exit(127);
    }
  }
  ~Program() {
    if (process_ > 0)
      end_with(SIGKILL);
  }
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  std::string out() const { return without_returns(contents(out_)); }
  std::string err() const { return without_returns(contents(err_)); }
  // Waits until `text` has appeared; false when the program ends without it.
  bool shows(const std::string& text) {
    const auto is_shown = [&] { return (out() + err()).find(text) != std::string::npos; };
    for (; process_ > 0 && !is_shown(); look(WNOHANG))
      ::usleep(100);
    return is_shown();
  }
  void send(int signal) const { ::kill(process_, signal); }
  Outcome end_with(int signal) {
    send(signal);
    return wait();
  }
  Outcome wait() {
    look(0);
    return {WIFEXITED(status_) ? WEXITSTATUS(status_) : -WTERMSIG(status_), out(), err()};
  }

 private:
  void look(int options) {
    if (process_ > 0 && ::waitpid(process_, &status_, options) == process_)
      process_ = 0;
  }

  static inline int count_ = 0;
  const std::string out_ = "out" + std::to_string(++count_);
  const std::string err_ = "err" + std::to_string(count_);
  pid_t process_ = 0;
  int status_ = 0;
};

inline Outcome run(const std::string& name, const std::string& arguments, const std::string& input = {},
                   const std::string& before = {}) {
  return Program(name, arguments, input, before).wait();
}

// Works in a directory of its own, where "db" is for the databases.
class InDirectory : public testing::Test {
 protected:
  InDirectory() {
    std::filesystem::create_directory(directory_);
    std::filesystem::current_path(directory_);
    std::filesystem::create_directory("db");
    // Wine speaks on standard error while it sets itself up, the first time that it runs.
    run(createdb, "-h");
  }
  ~InDirectory() override {
    std::filesystem::current_path("/");
    std::filesystem::remove_all(directory_);
  }

 private:
  const std::filesystem::path directory_ =
      std::filesystem::temp_directory_path() / ("quenor-real-" + std::to_string(::getpid()));
};

}  // namespace real
