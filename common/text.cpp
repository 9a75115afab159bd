#include "common/text.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "platform/platform.h"

namespace text {
namespace {

template <typename Number>
std::string to_decimal(Number value) {
  std::array<char, 128> buffer;
  const auto end = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value).ptr;
  return std::string(buffer.data(), end);
}

std::string padded(const std::string& digits) {
  return digits.size() < 2 ? "0" + digits : digits;
}

}  // namespace

std::string decimal(std::int64_t value) {
  return to_decimal(value);
}
std::string decimal(std::uint64_t value) {
  return to_decimal(value);
}
std::string two_digits(std::int32_t value) {
  return padded(to_decimal(value));
}
std::string two_digits(std::uint32_t value) {
  return padded(to_decimal(value));
}

}  // namespace text

const char* system_error_text(std::uint32_t code) {
  static std::array<char, 256> buffer;
  const std::string found = system_error_string(code);
  const std::size_t length = std::min(found.size(), buffer.size() - 1);
  std::copy_n(found.data(), length, buffer.data());
  buffer[length] = '\0';
  return buffer.data();
}

std::string system_error_string(std::uint32_t code) {
  const auto found = platform::system().error_text(code);
  if (!found.ok())
    return text::concat(code, " (FormatMessage: ", found.status().code, ")");
  std::string message = found.value();
  while (!message.empty() && (message.back() == '\r' || message.back() == '\n'))
    message.pop_back();
  return message.empty() ? text::concat(code) : message;
}
