// The bytes are a meta database. When its header asks for an external journal it gets an empty one.

#include "checksums.h"
#include "inputs.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const fuzz::Bytes journal = fuzz::make_empty_journal();
  const fuzz::Computer computer({{}, fuzz::to_bytes(data, size), journal});
  fuzz::use_database();
  return 0;
}

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t max_size,
                                               unsigned seed) {
  return fuzz::mutate(data, size, max_size, seed, fuzz::fit_mdb);
}
