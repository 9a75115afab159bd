// Writes JSON as it goes: a member is begun with key(), and what follows is its value.

#pragma once

#include <concepts>
#include <cstdint>
#include <optional>
#include <ostream>
#include <string_view>

#include "views/names.h"

namespace inspect {

class JsonWriter {
 public:
  // Containers down to `spread_depth` have each member on a line of its own.
  JsonWriter(std::ostream& out, unsigned spread_depth) : out_(out), spread_depth_(spread_depth) {}

  JsonWriter& key(std::string_view name) {
    next();
    write_json_string(out_, name);
    out_ << ':';
    if (spread_depth_ > 0)
      out_ << ' ';
    follows_key_ = true;
    return *this;
  }

  void value(std::string_view text) {
    next();
    write_json_string(out_, text);
  }
  // A literal would rather be a truth value than a text.
  void value(const char* text) { value(std::string_view(text)); }
  void value(bool flag) { plain(flag ? "true" : "false"); }
  void value(std::unsigned_integral auto number) { plain(text::decimal(std::uint64_t{number})); }
  void value(std::nullopt_t) { plain("null"); }
  void value(NodeKey id) { value(std::string_view(text_of(id))); }
  template <typename Value>
  void value(const std::optional<Value>& value_or_none) {
    if (value_or_none) {
      value(*value_or_none);
    } else {
      value(std::nullopt);
    }
  }

  template <typename Value>
  JsonWriter& member(std::string_view name, const Value& of_member) {
    key(name).value(of_member);
    return *this;
  }
  // Null where the text is empty.
  JsonWriter& text_or_null(std::string_view name, std::string_view text) {
    return member(name, text.empty() ? std::optional<std::string_view>() : text);
  }

  // `fill` writes the members.
  template <typename Fill>
  void object(Fill fill) {
    open('{');
    fill();
    close('}');
  }
  template <typename Fill>
  void array(Fill fill) {
    open('[');
    fill();
    close(']');
  }
  // `each` writes one element.
  template <typename Range, typename Each>
  void array_of(const Range& range, Each each) {
    array([&] {
      for (const auto& element : range)
        each(element);
    });
  }

 private:
  void plain(std::string_view text) {
    next();
    out_ << text;
  }
  void open(char bracket);
  void close(char bracket);
  void new_line();
  // Puts what stands between a member and the one before it.
  void next();

  std::ostream& out_;
  unsigned spread_depth_;
  unsigned depth_ = 0;
  bool is_first_ = true;
  bool follows_key_ = false;
};

}  // namespace inspect
