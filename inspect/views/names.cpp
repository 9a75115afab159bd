#include "views/names.h"

#include <array>

#include "nodemodel/node_types.h"
#include "nodemodel/record_format.h"
#include "timeseries/chain_kind.h"

namespace inspect {
namespace {

// Each in the order of its enumeration.
constexpr std::array<std::string_view, 3> chain_states = {"valid", "raised ahead", "damaged"};
constexpr std::array<std::string_view, 5> fates = {"replayed", "superseded", "does not fit", "torn", "begun"};
constexpr std::array<std::string_view, 7> half_ends = {
    "nothing more", "stale entries",          "begun",           "torn",
    "redirected",   "past the mapped blocks", "past the journal"};
constexpr std::array<std::string_view, 3> verdicts = {"sound", "damaged", "not a pair"};

// By class byte; empty for the one that means nothing.
constexpr std::array<std::string_view, block_class_count> class_keys = {
    "empty", "used", "full", "", "index_root", "index_node", "index_leaf", "large_object"};

constexpr unsigned char first_printable = 0x20;
constexpr unsigned char delete_character = 0x7F;

unsigned char byte_at(std::string_view text, std::size_t i) {
  return static_cast<unsigned char>(text[i]);
}

// The length of the UTF-8 sequence at the start of `text`, which is not empty; 0 when there is none.
std::size_t sequence_length(std::string_view text) {
  const unsigned char first = byte_at(text, 0);
  if (first < 0x80)
    return 1;
  const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
  if (first < 0xC2 || first > 0xF4 || text.size() < length)
    return 0;
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte_at(text, i) & 0xC0) != 0x80)
      return 0;
  }
  // Longer than needed, a half of a pair of UTF-16, or past the last character.
  const unsigned char second = byte_at(text, 1);
  const bool is_no_character = (first == 0xE0 && second < 0xA0) || (first == 0xED && second >= 0xA0) ||
                               (first == 0xF0 && second < 0x90) || (first == 0xF4 && second >= 0x90);
  return is_no_character ? 0 : length;
}

std::string hex_byte(unsigned char byte) {
  return {text::hex_digits[byte >> 4U], text::hex_digits[byte & 0xFU]};
}

}  // namespace

std::string_view name_of(ChainState state) {
  return chain_states[static_cast<std::size_t>(state)];
}

std::string_view name_of(TransactionFate fate) {
  return fates[static_cast<std::size_t>(fate)];
}

std::string_view name_of(HalfEnd end) {
  return half_ends[static_cast<std::size_t>(end)];
}

std::string_view name_of(Verdict verdict) {
  return verdicts[static_cast<std::size_t>(verdict)];
}

std::string_view chain_kind_name(std::size_t kind) {
  return tsdb::chain_traits[kind].name;
}

std::string_view block_class_key(std::size_t class_byte) {
  return class_byte < class_keys.size() ? class_keys[class_byte] : std::string_view{};
}

std::string_view node_type_text(std::optional<std::uint32_t> type) {
  return type ? dbcache::node_type_name(static_cast<dbcache::node_type_t>(*type)) : std::string_view{};
}

std::string_view node_name(const NodeFacts& node) {
  for (const PropertyFacts& property : node.properties) {
    const auto* const text = std::get_if<std::string>(&property.value);
    if (property.id == mdb::property_id::name && text != nullptr)
      return *text;
  }
  return {};
}

std::string printable(std::string_view bytes) {
  std::string shown;
  while (!bytes.empty()) {
    const unsigned char first = byte_at(bytes, 0);
    const std::size_t length = sequence_length(bytes);
    // The control characters of 8 bits are two bytes long.
    const bool is_control = first < first_printable || first == delete_character ||
                            (first == 0xC2 && length == 2 && byte_at(bytes, 1) < 0xA0);
    if (length == 0 || is_control) {
      shown += "\\x" + hex_byte(first);
      bytes.remove_prefix(1);
      continue;
    }
    shown += bytes.substr(0, length);
    bytes.remove_prefix(length);
  }
  return shown;
}

void write_json_string(std::ostream& out, std::string_view bytes) {
  out << '"';
  while (!bytes.empty()) {
    const unsigned char first = byte_at(bytes, 0);
    const std::size_t length = sequence_length(bytes);
    if (length == 0) {
      out << "\\ufffd";
    } else if (first == '"' || first == '\\') {
      out << '\\' << bytes[0];
    } else if (first < first_printable || first == delete_character || first == '<') {
      out << "\\u00" << hex_byte(first);
    } else {
      out << bytes.substr(0, length);
    }
    bytes.remove_prefix(length == 0 ? 1 : length);
  }
  out << '"';
}

std::string hex(const std::vector<std::byte>& bytes) {
  std::string digits;
  for (const std::byte byte : bytes)
    digits += hex_byte(std::to_integer<unsigned char>(byte));
  return digits;
}

}  // namespace inspect
