// The bytes are the journal of a sound meta database.

#include "checksums.h"
#include "inputs.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const fuzz::Bytes mdb = fuzz::make_files(fuzz::shapes[0]).mdb;
  const fuzz::Computer computer({{}, mdb, fuzz::to_bytes(data, size)});
  fuzz::use_database();
  return 0;
}

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t max_size,
                                               unsigned seed) {
  return fuzz::mutate(data, size, max_size, seed, fuzz::fit_journal);
}
