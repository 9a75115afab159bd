// The creation tool on a terminal of its own, which shows standard error, too.

#pragma once

#include <pty.h>

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
    char letter = 0;
    const bool is_there = ::read(terminal, &letter, 1) == 1;
    shown.append(is_there ? 1 : 0, letter);
    return is_there;
  };
  for (const auto& [question, answer] : answers) {
    while (!shown.ends_with(question) && show_more()) {
    }
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
