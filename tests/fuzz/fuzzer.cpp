// One of the targets, as the fuzzer calls it.

#include <algorithm>
#include <string_view>

#include "targets.h"

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t max_size);

namespace {

const fuzz::Target& target =
    *std::ranges::find(fuzz::targets, std::string_view(QUENOR_FUZZ_TARGET), &fuzz::Target::name);

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto input = std::as_bytes(std::span(data, size));
  if (!input.empty())
    target.try_input({input.begin(), input.end()});
  return 0;
}

// Files guard themselves with checksums. A mutant's are made to fit again in half of the cases, so that the
// code behind them is met by damage as often as the code that checks them.
extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t max_size,
                                               unsigned seed) {
  size = LLVMFuzzerMutate(data, size, max_size);
  if (target.fit != nullptr && size > 0 && seed % 2 == 0)
    target.fit(std::as_writable_bytes(std::span(data, size)));
  return size;
}
