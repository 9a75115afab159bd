// A program of a build as a process of its own, to be disturbed while it runs: of this build, or of the
// Windows one, under Wine, when the environment variable QUENOR_WINDOWS_BUILD holds its folder. What it
// writes goes to a file in the current directory. A run that takes a minute is ended.

#pragma once

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

namespace real {

inline const char* windows_build() {
  return std::getenv("QUENOR_WINDOWS_BUILD");
}

class Program {
 public:
  // `name` is its path in the build, `input` all that it can read.
  Program(const std::string& name, const std::string& arguments, const std::string& input = {}) {
    const std::string path = windows_build() == nullptr
                                 ? "'" QUENOR_BUILD "/" + name + "' "
                                 : "wine '" + (windows_build() + ("/" + name)) + ".exe' ";
    const std::string command = "exec " + path + arguments + " <input >" + output_ + " 2>&1";
    std::ofstream("input") << input;
    std::ofstream{output_};
    process_ = ::fork();
    if (process_ == 0) {
      ::alarm(60);
      ::execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
      ::_exit(127);
    }
  }
  ~Program() {
    if (process_ > 0)
      end_with(SIGKILL);
  }
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  // Standard output and standard error so far; line ends as single newlines.
  std::string output() const {
    std::ifstream file(output_, std::ios::binary);
    std::string text(std::istreambuf_iterator<char>(file), {});
    std::erase(text, '\r');
    return text;
  }
  // Waits until `text` has appeared; false when the program ends without it.
  bool shows(const std::string& text) {
    for (; process_ > 0 && output().find(text) == std::string::npos; look(WNOHANG))
      ::usleep(100);
    return output().find(text) != std::string::npos;
  }
  void send(int signal) const { ::kill(process_, signal); }
  int end_with(int signal) {
    send(signal);
    return wait();
  }
  // The exit status, or minus the number of the signal that ended the program.
  int wait() {
    look(0);
    return WIFEXITED(status_) ? WEXITSTATUS(status_) : -WTERMSIG(status_);
  }

 private:
  void look(int options) {
    if (process_ > 0 && ::waitpid(process_, &status_, options) == process_)
      process_ = 0;
  }

  static inline int count_ = 0;
  const std::string output_ = "output" + std::to_string(++count_);
  pid_t process_ = 0;
  int status_ = 0;
};

}  // namespace real
