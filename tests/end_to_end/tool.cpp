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
  std::string line = "WINEDEBUG=-all timeout --foreground 60 " + tool_command();
  for (const auto& argument : arguments)
    line += " '" + argument + "'";
  return line;
}

// Goes on with a command line that writes standard error to $d/err.
std::string signal_during_growth(const std::string& signal) {
  return " & until grep -q '" + growth + "' \"$d/err\" || ! kill -0 $!; do sleep 0.01; done; kill -" +
         signal + " $!; wait $!";
}

int exit_status(int status) {
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// The terminal's processes are a group that has the first one's number.
void stand_still(pid_t first_process) {
  ::kill(-first_process, SIGSTOP);
  std::this_thread::sleep_for(std::chrono::milliseconds(1'200));
  ::kill(-first_process, SIGCONT);
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

Outcome run(const Arguments& arguments, const std::string& input, Trouble trouble) {
  const auto directory =
      std::filesystem::temp_directory_path() / ("quenor-streams-" + std::to_string(::getpid()));
  std::filesystem::create_directory(directory);
  std::ofstream(directory / "in", std::ios::binary) << input;
  std::string line = "d='" + directory.string() + "'; ";
  if (trouble == Trouble::files_of_a_megabyte_at_most)
    line += "ulimit -f 2000; ";  // in blocks of 512 bytes
  if (trouble == Trouble::output_that_nobody_reads)
    line += "mkfifo \"$d/out\"; exec 3<>\"$d/out\" 4>\"$d/out\" 3<&-; ";
  line += command_line(arguments) + " <\"$d/in\" 2>\"$d/err\" ";
  line += trouble == Trouble::output_that_nobody_reads ? ">&4" : ">\"$d/out\"";
  if (trouble == Trouble::interrupt_during_growth)
    line += signal_during_growth("INT");
  if (trouble == Trouble::termination_during_growth)
    line += signal_during_growth("TERM");
  Outcome outcome;
  outcome.status = exit_status(std::system(line.c_str()));
  outcome.err = contents(directory / "err");
  if (trouble != Trouble::output_that_nobody_reads)
    outcome.out = contents(directory / "out");
  std::filesystem::remove_all(directory);
  return outcome;
}

Outcome run_on_terminal(const Arguments& arguments, const Answers& answers) {
  // The keys of a terminal signal to all that runs on it: no shell may stay.
  const std::string line = "exec env " + command_line(arguments);
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
    if (answer == pause)
      stand_still(child);
    else if (::write(terminal, answer.data(), answer.size()) != std::ssize(answer))
      throw std::runtime_error("cannot type");
  }
  while (show_more()) {
  }
  int status = -1;
  ::waitpid(child, &status, 0);
  ::close(terminal);
  return {exit_status(status), without_returns(shown), ""};
}

}  // namespace tool
