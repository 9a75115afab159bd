// One of the targets, as the fuzzer calls it.

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <string_view>

#include "common/bytes.h"
#include "common/crc32.h"
#include "targets.h"

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t max_size);

namespace {

const fuzz::Target& target =
    *std::ranges::find(fuzz::targets, std::string_view(QUENOR_FUZZ_TARGET), &fuzz::Target::name);

// The words that sizes, numbers and places are most easily mistaken about.
constexpr std::uint32_t words[] = {0, 1,   2,           3,           4,           7,
                                   8, 255, 0x7FFF'FFFF, 0x8000'0000, 0xFFFF'FFF8, 0xFFFF'FFFF};

// A word at a place where structure is likely: the start of the file or of a small block, or anywhere.
void set_some_word(std::span<std::byte> file, std::minstd_rand& random) {
  std::size_t offset = random() % (file.size() / 4) * 4;
  if (random() % 2 == 0)
    offset = std::min(offset / 128 * 128 + random() % 12 * 4, file.size() / 4 * 4 - 4);
  const std::uint32_t old = bytes::load_u32(file, offset);
  const std::uint32_t other = bytes::load_u32(file, random() % (file.size() / 4) * 4);
  const std::uint32_t values[] = {old + 1, old - 1, other, words[random() % std::size(words)]};
  bytes::store_u32(file, offset, values[random() % std::size(values)]);
}

}  // namespace

// Puts the first inputs into the corpus, the same always under the same name.
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
  const std::filesystem::path corpus = (*argv)[*argc - 1];
  if (!std::filesystem::is_directory(corpus))
    return 0;
  for (const fuzz::Bytes& input : target.first_inputs()) {
    std::ofstream file(corpus / ("seed-" + std::to_string(security::crc32(input))), std::ios::binary);
    file.exceptions(std::ios::badbit | std::ios::failbit);
    for (const std::byte byte : input)
      file.put(static_cast<char>(byte));
  }
  return 0;
}

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
  std::minstd_rand random(seed);
  if (target.fit == nullptr || size < 4 || random() % 3 == 0) {
    size = LLVMFuzzerMutate(data, size, max_size);
  } else {
    for (auto count = 1 + random() % 3; count > 0; --count)
      set_some_word(std::as_writable_bytes(std::span(data, size)), random);
  }
  if (target.fit != nullptr && size > 0 && seed % 2 == 0)
    target.fit(std::as_writable_bytes(std::span(data, size)));
  return size;
}
