#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <array>
#include <fstream>
#include <stdexcept>

#include "common/text.h"
#include "workloads.h"

extern char** environ;

namespace bench {
namespace {

struct Finished {
  double milliseconds;
  double processor_milliseconds;
};

double milliseconds(const timeval& time) {
  return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_usec) / 1e3;
}

// Memory of its own that a program may have; mapped files do not count.
constexpr rlim_t private_memory_limit = rlim_t{12} << 20;

// Runs a program to its end, with the file as its input and without output. It fails when it wants more
// memory than it may have.
Finished run_program(std::vector<std::string> words, const std::string& input) {
  posix_spawn_file_actions_t streams;
  posix_spawn_file_actions_init(&streams);
  posix_spawn_file_actions_addopen(&streams, 0, input.c_str(), O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&streams, 1, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&streams, 2, "/dev/null", O_WRONLY, 0);
  std::vector<char*> arguments;
  for (std::string& word : words)
    arguments.push_back(word.data());
  arguments.push_back(nullptr);

  const rlimit limit{private_memory_limit, private_memory_limit};
  const Clock clock;
  pid_t process = 0;
  int status = -1;
  rusage usage{};
  const bool ended =
      posix_spawn(&process, words[0].c_str(), &streams, nullptr, arguments.data(), environ) == 0 &&
      prlimit(process, RLIMIT_DATA, &limit, nullptr) == 0 && wait4(process, &status, 0, &usage) == process;
  const double seconds = clock.seconds();
  posix_spawn_file_actions_destroy(&streams);
  if (!ended || status != 0)
    throw std::runtime_error(words[0] + " has failed");
  return {seconds * 1000, milliseconds(usage.ru_utime) + milliseconds(usage.ru_stime)};
}

// The tool beside its bare sibling, by the clock and by the processor.
void create(const Options& options, const std::string& workload, int checks, Target target) {
  const auto tool = [&] {
    const std::string directory = fresh_directory(options, "creation");
    const std::string answers = options.directory / "answers";
    std::ofstream(answers) << text::concat(directory, "\ne\n", directory, "\n8\n3\n8192\n", checks, '\n',
                                           directory, '\n');
    const bool is_default = checks == 10;
    const std::string program = options.programs / "quenor-createdb";
    return run_program(is_default ? std::vector{program, std::string("-d"), directory, std::string("-f")}
                                  : std::vector{program, std::string("-i"), std::string("-f")},
                       answers);
  };
  const auto bare = [&] {
    return run_program(
        {options.programs / "bare-creation", fresh_directory(options, "creation"), std::to_string(checks)},
        "/dev/null");
  };
  const auto compare = [&](const std::string& unit, double Finished::*cost, Target wanted) {
    const auto cost_of = [cost](const auto& run) {
      return fastest_of_some([&run, cost] { return Outcome{run().*cost, {}}; });
    };
    contest(options, workload, unit,
            {{"Quenor", cost_of(tool)}, {"the same writes and flushes", cost_of(bare), wanted}});
  };
  compare("ms", &Finished::milliseconds, target);
  compare("CPU ms", &Finished::processor_milliseconds, at_most(1.5));
  remark(text::concat("the tool had ", private_memory_limit >> 20, " MiB of private memory at most"));
}

}  // namespace

void run_create_default(const Options& options) {
  create(options, "create-default", 10, at_most(1.2));
}

void run_create_1000(const Options& options) {
  create(options, "create-1000", options.quick ? 20 : 1000, at_most(1.05));
}

}  // namespace bench
