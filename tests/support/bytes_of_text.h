// Texts as the bytes that files hold.

#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

namespace support {

inline std::span<const std::byte> bytes_of(std::string_view text) {
  return std::as_bytes(std::span(text));
}

inline std::string text_of(std::span<const std::byte> bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

}  // namespace support
