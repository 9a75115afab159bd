// Texts: numbers in decimal, messages put together from pieces, system error messages.

#pragma once

#include <concepts>
#include <cstdint>
#include <string>
#include <string_view>

namespace text {

// A number in decimal, whatever its width.
std::string decimal(std::int64_t value);
std::string decimal(std::uint64_t value);

// A number in decimal, with a leading zero when it would be shorter than two characters.
std::string two_digits(std::int32_t value);
std::string two_digits(std::uint32_t value);

// Adds a piece to a text: a string as it stands, a character as itself, another number in decimal. A type of
// its own becomes a piece by an overload in its namespace.
inline void append(std::string& text, std::string_view piece) {
  text += piece;
}
// The same for numbers and characters.
template <std::integral Number>
void append(std::string& text, Number value) {
  if constexpr (std::same_as<Number, char>) {
    text += value;
  } else if constexpr (std::signed_integral<Number>) {
    text += decimal(std::int64_t{value});
  } else {
    text += decimal(std::uint64_t{value});
  }
}

// The pieces in order: strings as they stand, numbers in decimal.
template <typename... Pieces>
std::string concat(const Pieces&... pieces) {
  std::string text;
  (append(text, pieces), ...);
  return text;
}

// The alphabets of digests and of base64.
inline constexpr std::string_view hex_digits = "0123456789abcdef";
inline constexpr std::string_view base64_digits =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

}  // namespace text

// The system's message for an error code, without trailing line ends, at most 255 characters; the code
// in decimal when the message is empty, and followed by the look-up's own error when that fails.
// The result lies in a static buffer that the next call overwrites.
const char* system_error_text(std::uint32_t code);

// The same in a string of its own.
std::string system_error_string(std::uint32_t code);
