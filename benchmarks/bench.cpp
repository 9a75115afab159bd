// quenor-bench [--quick] [--runs N] [--directory DIR] [NAME...]: runs all workloads or the named ones and
// writes one table to standard output. Its files lie in DIR, ./bench-data unless named, and are removed
// again.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <string_view>

#include "workloads.h"

namespace {

struct Workload {
  std::string_view name;
  void (*run)(const bench::Options& options);
};

constexpr Workload workloads[] = {
    {"create-default", bench::run_create_default},
    {"create-1000", bench::run_create_1000},
    {"store", bench::run_store},
    {"store-sync", bench::run_store_sync},
    {"get", bench::run_get},
    {"children", bench::run_children},
    {"re-parent", bench::run_re_parent},
    {"rewrite", bench::run_rewrite},
    {"free", bench::run_free},
    {"miss", bench::run_miss},
    {"open", bench::run_open},
    {"replay", bench::run_replay},
    {"crc32", bench::run_crc32},
    {"md5", bench::run_md5},
    {"levels", bench::run_levels},
    {"check-ids", bench::run_check_ids},
    {"grow", bench::run_grow},
};

[[noreturn]] void end_with_usage() {
  std::fputs("Usage: quenor-bench [--quick] [--runs N] [--directory DIR] [NAME...]\nNames:", stderr);
  for (const Workload& workload : workloads)
    std::fprintf(stderr, " %s", workload.name.data());
  std::fputc('\n', stderr);
  std::exit(2);
}

}  // namespace

int main(int argc, char** argv) {
  bench::Options options;
  options.programs = std::filesystem::absolute(argv[0]).parent_path();
  options.directory = "bench-data";
  std::vector<Workload> chosen;
  const std::span words(argv + 1, static_cast<std::size_t>(argc - 1));
  for (std::size_t i = 0; i < words.size(); ++i) {
    const std::string_view word = words[i];
    const auto named = std::ranges::find(workloads, word, &Workload::name);
    if (word == "--quick") {
      options.quick = true;
      options.runs = 1;
    } else if (word == "--runs" && i + 1 < words.size()) {
      options.runs = std::max(1, std::atoi(words[++i]));
    } else if (word == "--directory" && i + 1 < words.size()) {
      options.directory = words[++i];
    } else if (named != std::end(workloads)) {
      chosen.push_back(*named);
    } else {
      end_with_usage();
    }
  }
  if (chosen.empty())
    chosen.assign(std::begin(workloads), std::end(workloads));

  options.directory = std::filesystem::absolute(options.directory);
  std::filesystem::remove_all(options.directory);
  std::filesystem::create_directories(options.directory);
  bench::begin_table();
  for (const Workload& workload : chosen)
    workload.run(options);
  std::filesystem::remove_all(options.directory);
  return 0;
}
