#include <benchmark/benchmark.h>
#include <openssl/evp.h>
#include <zlib.h>

#include <array>
#include <map>
#include <span>

#include "common/crc32.h"
#include "common/md5.h"
#include "common/text.h"
#include "crc32_variants.h"
#include "workloads.h"

namespace bench {
namespace {

using Bytes = std::span<const std::byte>;

void library_crc32(Bytes bytes) {
  benchmark::DoNotOptimize(security::crc32(bytes));
}
void portable_crc32(Bytes bytes) {
  benchmark::DoNotOptimize(security::crc32_variants::update_by_tables(0xFFFF'FFFF, bytes));
}
void zlib_crc32(Bytes bytes) {
  benchmark::DoNotOptimize(
      crc32(0, reinterpret_cast<const Bytef*>(bytes.data()), static_cast<uInt>(bytes.size())));
}
void library_md5(Bytes bytes) {
  security::Md5 hash;
  std::array<std::byte, 16> digest;
  hash.update(bytes.size(), bytes.data());
  hash.final(digest.data());
  benchmark::DoNotOptimize(digest);
}
void openssl_md5(Bytes bytes) {
  static EVP_MD* const md5 = EVP_MD_fetch(nullptr, "MD5", nullptr);
  static EVP_MD_CTX* const context = EVP_MD_CTX_new();
  std::array<unsigned char, 16> digest;
  EVP_DigestInit_ex2(context, md5, nullptr);
  EVP_DigestUpdate(context, bytes.data(), bytes.size());
  EVP_DigestFinal_ex(context, digest.data(), nullptr);
  benchmark::DoNotOptimize(digest);
}

struct Hash {
  std::string name;
  void (*run)(Bytes bytes);
};

// The median of each benchmark's repetitions, in bytes a second.
class Medians final : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context&) override { return true; }
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.aggregate_name == "median")
        rates[run.run_name.function_name] = run.counters.at("bytes_per_second");
    }
  }

  std::map<std::string, double> rates;
};

// Each hash for the options' number of times, in random order of all.
std::map<std::string, double> measure(const Options& options, const std::vector<Hash>& hashes, Bytes bytes) {
  benchmark::ClearRegisteredBenchmarks();
  for (const Hash& hash : hashes) {
    benchmark::RegisterBenchmark(
        hash.name.c_str(),
        [hash, bytes](benchmark::State& state) {
          for ([[maybe_unused]] auto step : state)
            hash.run(bytes);
          state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes.size()));
        })
        ->Repetitions(std::max(options.runs, 2))
        ->MinTime(options.quick ? 0.005 : 0.1);
  }
  Medians medians;
  benchmark::RunSpecifiedBenchmarks(&medians);
  return medians.rates;
}

// Google's library has made the medians, so one run of the contest says all.
void compare(const Options& options, const std::string& workload, const std::vector<Hash>& hashes,
             std::size_t size, Target target) {
  static const std::vector<std::byte> bytes(1 << 20, std::byte{0xA5});
  const auto rates = measure(options, hashes, std::span(bytes).first(size));
  std::vector<Contestant> contestants;
  for (const Hash& hash : hashes)
    contestants.push_back({hash.name,
                           [&rates, hash] {
                             return Outcome{rates.at(hash.name) / 1e6, {}};
                           },
                           target});
  Options once = options;
  once.runs = 1;
  contest(once, text::concat(workload, ", ", size, " B"), "MB/s", contestants);
}

void initialize_library() {
  char name[] = "quenor-bench";
  char interleaving[] = "--benchmark_enable_random_interleaving=true";
  std::array arguments = {&name[0], &interleaving[0]};
  int count = static_cast<int>(arguments.size());
  benchmark::Initialize(&count, arguments.data());
}

}  // namespace

void run_crc32(const Options& options) {
  initialize_library();
  const Hash zlib = {"zlib", zlib_crc32};
  for (const std::size_t size : {16U, 64U, 512U, 8'192U, 1U << 20}) {
    const Target multiplying = size == 64 ? at_least(8) : size == 8'192 ? at_least(3) : Target{};
    const Target portable = size == 8'192 ? at_least(0.8) : Target{};
    compare(options, "crc32", {{"Quenor", library_crc32}, zlib}, size, multiplying);
    compare(options, "crc32, portable", {{"Quenor", portable_crc32}, zlib}, size, portable);
  }
}

void run_md5(const Options& options) {
  initialize_library();
  for (const std::size_t size : {64U, 8'192U})
    compare(options, "md5", {{"Quenor", library_md5}, {"OpenSSL", openssl_md5}}, size, at_least(0.7));
}

}  // namespace bench
