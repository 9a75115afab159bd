// The bytes take the place of one file of a sound pair; the inspection looks at it and shows all there is.

#include <initializer_list>
#include <sstream>

#include "checksums.h"
#include "inputs.h"
#include "inspect/command_line.h"

namespace {

void inspect_with(std::initializer_list<const char*> words) {
  std::ostringstream out;
  (void)inspect::run({words.begin(), words.size()}, out, out);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const fuzz::Files pairs[] = {fuzz::make_files(fuzz::shapes[0]), fuzz::make_files(fuzz::shapes[1])};
  if (size == 0)
    return 0;
  const fuzz::InspectedFile& inspected = fuzz::inspected_file(data[0]);
  fuzz::Files files = pairs[inspected.shape];
  files.*inspected.file = fuzz::to_bytes(data + 1, size - 1);
  const fuzz::Computer computer(files);
  inspect_with({"--journal", "--check", "--nodes", "--chains", "--indexes", "/db"});
  inspect_with({"--journal", "--check", "--nodes", "--chains", "--indexes", "--json", "/db"});
  inspect_with({"--report", "-", "/db"});
  return 0;
}

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t max_size,
                                               unsigned seed) {
  if (size == 0)
    return 0;
  const auto file = fuzz::inspected_file(data[0]).file;
  const fuzz::Fit fit = file == &fuzz::Files::tsdb  ? fuzz::fit_tsdb
                        : file == &fuzz::Files::mdb ? fuzz::fit_mdb
                                                    : fuzz::fit_journal;
  return 1 + fuzz::mutate(data + 1, size - 1, max_size - 1, seed, fit);
}
