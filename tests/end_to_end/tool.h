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

// On pipes. `input` is all that standard input holds; `script` is for a shell, the tool being the function
// `tool` there and $d a directory whose file err has standard error.
Outcome run(const Arguments& arguments, const std::string& input = {}, const std::string& script = "tool");

// On a terminal of its own, which shows standard error, too. Types each answer when its question is shown;
// the answer `pause` lets the program stand still for more than a second instead.
using Answers = std::vector<std::pair<std::string, std::string>>;  // question, answer
inline const std::string pause = "(pause)";
Outcome run_on_terminal(const Arguments& arguments, const Answers& answers);

// Whether the Windows program is run, which sees this system's files under a drive letter.
bool is_windows_program();

}  // namespace tool
