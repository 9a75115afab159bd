// Runs the creation tool as a program of its own: the native one, or the Windows one under Wine when the
// environment variable QUENOR_CREATEDB holds "wine" and its path. A run that takes minutes is ended.

#pragma once

#include <string>
#include <utility>
#include <vector>

namespace tool {

using Arguments = std::vector<std::string>;

struct Outcome {
  int status = -1;       // the exit status; above 127 when the program was ended by a signal
  std::string out, err;  // line ends as single newlines
};

// What the surroundings do to the program; of these Windows knows the interrupt only.
enum class Trouble {
  none,
  files_of_a_megabyte_at_most,
  output_that_nobody_reads,
  interrupt_during_growth,
  termination_during_growth,
};

// What standard error says before the time series database grows.
inline const std::string growth = "Initializing database...";

// On pipes. `input` is all that standard input holds.
Outcome run(const Arguments& arguments, const std::string& input = {}, Trouble trouble = Trouble::none);

// On a terminal of its own, which shows standard error, too. Types each answer when its question is shown;
// the answer `pause` lets the program stand still for more than a second instead.
using Answers = std::vector<std::pair<std::string, std::string>>;  // question, answer
inline const std::string pause = "(pause)";
Outcome run_on_terminal(const Arguments& arguments, const Answers& answers);

// Whether the Windows program is run, which sees this system's files under a drive letter.
bool is_windows_program();

}  // namespace tool
