// The checksum by carry-less multiplication of several lanes at once. Folding alone is done here, so that the
// rest stands in one place.

#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "crc32_folding.h"
#include "crc32_variants.h"

namespace security::crc32_variants {

// `Lanes` has what the instructions of one width are: their Register, `load`, `added` for a register with a
// number added to its first bytes, `movers` for the constants in every lane, and `folded`. It is a type of
// the file that is compiled for them, so that what is made from here stays there.
template <typename Lanes>
class WideFolding {
 public:
  static std::uint32_t update(std::uint32_t value, std::span<const std::byte> data) {
    return data.size() < worthwhile_size ? update_by_multiplication(value, data)
                                         : update_by_strides(value, data);
  }

 private:
  using Register = typename Lanes::Register;

  static constexpr std::size_t stride_size = 128;
  // So many that a multiplication need not wait for the one before it.
  static constexpr std::size_t register_count = stride_size / sizeof(Register);
  static constexpr Movers over_a_stride{8 * stride_size};
  // Below this setting out costs what the width gains.
  static constexpr std::size_t worthwhile_size = 4 * stride_size;

  // REQUIRES: data holds a stride. Apart from the choice above, which would set out for it each time.
  [[gnu::noinline]] static std::uint32_t update_by_strides(std::uint32_t value,
                                                           std::span<const std::byte> data) {
    const Register movers = Lanes::movers(over_a_stride);
    Register registers[register_count];
    for (std::size_t i = 0; i < register_count; ++i)
      registers[i] = Lanes::load(&data[i * sizeof(Register)]);
    registers[0] = Lanes::added(registers[0], value);
    for (data = data.subspan(stride_size); data.size() >= stride_size; data = data.subspan(stride_size)) {
      for (std::size_t i = 0; i < register_count; ++i)
        registers[i] = Lanes::folded(registers[i], movers, Lanes::load(&data[i * sizeof(Register)]));
    }
    // What has been folded is a message of one stride with the same remainder.
    return update_by_multiplication(update_by_multiplication(0, std::as_bytes(std::span(registers))), data);
  }
};

}  // namespace security::crc32_variants
