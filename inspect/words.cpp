#include "words.h"

#include <algorithm>

#include "common/text.h"

namespace inspect {

std::string magic_text(std::uint32_t word) {
  std::string characters;
  for (int shift = 24; shift >= 0; shift -= 8)
    characters += static_cast<char>(word >> shift & 0xFF);
  if (std::ranges::all_of(characters, [](char c) { return c > ' ' && c <= '~'; }))
    return "\"" + characters + "\"";
  std::string digits = "0x";
  for (int shift = 28; shift >= 0; shift -= 4)
    digits += text::hex_digits[word >> shift & 0xF];
  return digits;
}

}  // namespace inspect
