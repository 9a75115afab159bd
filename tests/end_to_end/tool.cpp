#include "tool.h"

#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace tool {
namespace {

std::string tool_command() {
  const char* given = std::getenv("QUENOR_CREATEDB");
  return given != nullptr ? given : "'" QUENOR_NATIVE_CREATEDB "'";
}

// For the shell. A run that takes longer than a minute is ended.
std::string command_line(const Arguments& arguments) {
  ::signal(SIGPIPE, SIG_DFL);  // what is ignored here would be ignored there
  std::string line = "env WINEDEBUG=-all timeout --foreground 60 " + tool_command();
  for (const auto& argument : arguments)
    line += " '" + argument + "'";
  return line;
}

int exit_status(int status) {
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string without_returns(std::string text) {
  std::erase(text, '\r');
  return text;
}

std::string contents(const std::filesystem::path& path) {
  std::ostringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return without_returns(text.str());
}

}  // namespace

bool is_windows_program() {
  return tool_command().starts_with("wine ");
}

Outcome run(const Arguments& arguments, const std::string& input, const std::string& script) {
  const auto directory =
      std::filesystem::temp_directory_path() / ("quenor-streams-" + std::to_string(::getpid()));
  std::filesystem::create_directory(directory);
  std::ofstream(directory / "in", std::ios::binary) << input;
  const std::string line = "d='" + directory.string() + "'; tool() { exec " + command_line(arguments) +
                           " <\"$d/in\" 2>\"$d/err\"; }; exec >\"$d/out\"; " + script;
  Outcome outcome;
  outcome.status = exit_status(std::system(line.c_str()));
  outcome.err = contents(directory / "err");
  outcome.out = contents(directory / "out");
  std::filesystem::remove_all(directory);
  return outcome;
}

Outcome run_on_terminal(const Arguments& arguments, const Answers& answers) {
  // The keys of a terminal signal to all that runs on it: no shell may stay.
  const std::string line = "exec " + command_line(arguments);
  int terminal = -1;
  const pid_t child = ::forkpty(&terminal, nullptr, nullptr, nullptr);
  if (child == 0) {
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
    if (answer == pause) {
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
  return {exit_status(status), without_returns(shown), ""};
}

}  // namespace tool
