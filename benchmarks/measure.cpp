#include "measure.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <utility>

namespace bench {
namespace {

struct Summary {
  std::vector<double> figures, middles, tails;

  void add(Outcome outcome) {
    figures.push_back(outcome.figure);
    if (outcome.microseconds.empty())
      return;
    std::ranges::sort(outcome.microseconds);
    middles.push_back(outcome.microseconds[outcome.microseconds.size() / 2]);
    tails.push_back(outcome.microseconds[outcome.microseconds.size() * 99 / 100]);
  }
};

double median(std::vector<double> values) {
  std::ranges::sort(values);
  const std::size_t middle = values.size() / 2;
  return values.size() % 2 != 0 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

std::string number(double value) {
  char text[32];
  const int digits = value >= 1000 ? 0 : value >= 10 ? 1 : value >= 0.1 ? 2 : 4;
  std::snprintf(text, sizeof text, "%.*f", digits, value);
  return text;
}

std::string percentiles(const Summary& summary) {
  if (summary.middles.empty())
    return "";
  return number(median(summary.middles)) + " / " + number(median(summary.tails));
}

std::string judgement(const Target& target, double ours, double sibling) {
  const auto met = [](bool is_met) { return is_met ? ", met" : ", **missed**"; };
  switch (target.kind) {
    case Target::Kind::none:
      return "";
    case Target::Kind::at_least:
      return "≥ " + number(target.value) + met(ours >= target.value * sibling);
    case Target::Kind::at_most:
      return "≤ " + number(target.value) + met(ours <= target.value * sibling);
    case Target::Kind::at_most_beyond:
      return "≤ + " + number(target.value) + met(ours <= target.value + sibling);
  }
  return "";
}

}  // namespace

std::vector<double> contest(const Options& options, const std::string& workload, const std::string& unit,
                            const std::vector<Contestant>& contestants) {
  std::vector<Summary> summaries(contestants.size());
  for (int run = 0; run < options.runs; ++run) {
    for (std::size_t i = 0; i < contestants.size(); ++i) {
      std::fprintf(stderr, "%s, run %d: %s", workload.c_str(), run + 1, contestants[i].name.c_str());
      ::sync();  // what the one before has left to write
      summaries[i].add(contestants[i].run());
      std::fprintf(stderr, " %s\n", number(summaries[i].figures.back()).c_str());
    }
  }
  std::vector<double> figures;
  for (const Summary& summary : summaries)
    figures.push_back(median(summary.figures));
  const double ours = figures[0];
  for (std::size_t i = 1; i < contestants.size(); ++i) {
    const double sibling = figures[i];
    std::printf("| %s | %s | %s | %s | %s | %s | %s | %s | %s |\n", workload.c_str(), unit.c_str(),
                number(ours).c_str(), percentiles(summaries[0]).c_str(), contestants[i].name.c_str(),
                number(sibling).c_str(), percentiles(summaries[i]).c_str(),
                sibling == 0 ? "" : number(ours / sibling).c_str(),
                judgement(contestants[i].target, ours, sibling).c_str());
  }
  std::fflush(stdout);
  return figures;
}

std::function<Outcome()> fastest_of_some(std::function<Outcome()> run) {
  return [run = std::move(run)] {
    constexpr int attempts = 4;
    Outcome fastest = run();
    for (int i = 1; i < attempts; ++i)
      fastest.figure = std::min(fastest.figure, run().figure);
    return fastest;
  };
}

void remark(const std::string& text) {
  std::printf("| | | | | %s | | | | |\n", text.c_str());
}

void begin_table() {
  std::printf(
      "| workload | unit | Quenor | p50 / p99 µs | sibling | figure | p50 / p99 µs | ratio | target |\n"
      "|---|---|---|---|---|---|---|---|---|\n");
}

double processor_seconds() {
  timespec now{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

std::filesystem::path fresh_directory(const Options& options, const std::string& name) {
  const std::filesystem::path path = options.directory / name;
  std::filesystem::remove_all(path);
  std::filesystem::create_directories(path);
  return path;
}

}  // namespace bench
