// The creation tool on a terminal of its own, which shows standard error, too.

#pragma once

#include <pty.h>

#include <array>
#include <chrono>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

#include "program.h"

// Types each answer when its question is shown; the answer `pause_it` lets the program stand still for more
// than a second instead.
using Answers = std::vector<std::pair<std::string, std::string>>;  // question, answer
inline const std::string pause_it = "(pause)";

inline real::Outcome run_on_terminal(const std::string& arguments, const Answers& answers) {
  // The keys of a terminal signal to all that runs on it: no shell may stay.
  const std::string line = real::command_line(real::createdb, arguments);
  int terminal = -1;
  const pid_t child = ::forkpty(&terminal, nullptr, nullptr, nullptr);
  if (child == 0) {
    ::alarm(60);
    ::execl("/bin/sh", "sh", "-c", line.c_str(), nullptr);
    ::_exit(127);
  }
  std::string shown;
  const auto show_more = [&] {
    std::array<char, 4096> buffer;
    const ssize_t length = ::read(terminal, buffer.data(), buffer.size());
    if (length > 0)
      shown.append(buffer.data(), static_cast<std::size_t>(length));
    return length > 0;
  };
  std::size_t seen = 0;
  for (const auto& [question, answer] : answers) {
    while (shown.find(question, seen) == std::string::npos && show_more()) {
    }
    seen = shown.size();
    if (answer == pause_it) {
      // The terminal's processes are a group that has the first one's number.
      ::kill(-child, SIGSTOP);
      std::this_thread::sleep_for(std::chrono::milliseconds(1'200));
      ::kill(-child, SIGCONT);
    } else if (::write(terminal, answer.data(), answer.size()) != std::ssize(answer)) {
      throw std::runtime_error("cannot type");
    }
  }
  while (show_more()) {
  }
  int status = -1;
  ::waitpid(child, &status, 0);
  ::close(terminal);
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, real::without_returns(shown), ""};
}
