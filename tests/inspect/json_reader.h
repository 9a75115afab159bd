// Tells whether a text is JSON, in UTF-8, as its users' parsers want it.

#pragma once

#include <cctype>
#include <string_view>

namespace inspect_test {

class JsonReader {
 public:
  static bool accepts(std::string_view text) {
    JsonReader reader(text);
    return reader.value() && (reader.skip_space(), reader.rest_.empty());
  }

 private:
  explicit JsonReader(std::string_view text) : rest_(text) {}

  void skip_space() { rest_.remove_prefix(std::min(rest_.find_first_not_of(" \n"), rest_.size())); }

  bool take(std::string_view token) {
    skip_space();
    const bool starts = rest_.starts_with(token);
    if (starts)
      rest_.remove_prefix(token.size());
    return starts;
  }

  bool value() {
    if (take("{"))
      return members('}', [this] { return string() && take(":") && value(); });
    if (take("["))
      return members(']', [this] { return value(); });
    if (take("true") || take("false") || take("null"))
      return true;
    return rest_.starts_with('"') ? string() : number();
  }

  template <typename Member>
  bool members(char end, Member member) {
    if (take({&end, 1}))
      return true;
    while (member()) {
      if (take({&end, 1}))
        return true;
      if (!take(","))
        return false;
    }
    return false;
  }

  bool number() {
    const std::size_t digits = std::min(rest_.find_first_not_of("0123456789"), rest_.size());
    const bool is_number = digits > 0 && (digits == 1 || rest_[0] != '0');
    rest_.remove_prefix(digits);
    return is_number;
  }

  bool string() {
    if (!take("\""))
      return false;
    while (!rest_.empty()) {
      const auto character = static_cast<unsigned char>(rest_[0]);
      std::size_t length = 1;
      if (character == '"')
        return take("\"");
      if (character < 0x20)
        return false;
      if (character == '\\') {
        length = rest_.starts_with("\\u") ? 6 : 2;
      } else if (character >= 0x80) {
        length = character >= 0xF0 ? 4 : character >= 0xE0 ? 3 : 2;
        for (std::size_t i = 1; i < length; ++i) {
          if (character < 0xC2 || i >= rest_.size() || (static_cast<unsigned char>(rest_[i]) & 0xC0) != 0x80)
            return false;
        }
      }
      if (length > rest_.size())
        return false;
      rest_.remove_prefix(length);
    }
    return false;
  }

  std::string_view rest_;
};

}  // namespace inspect_test
