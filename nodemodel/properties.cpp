#include "nodemodel/properties.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "common/bytes.h"
#include "common/errors.h"
#include "common/text.h"

namespace mdb {

namespace entry_format = format::property_entry;

namespace {

std::size_t with_padding(std::size_t value_offset, std::size_t size) {
  return entry_format::padded(value_offset + size) - value_offset;
}

[[noreturn]] void throw_value_crosses_end(std::uint32_t id) {
  throw error_need_repair(text::concat("Value of property ", id, " crosses the end of its entry"));
}

}  // namespace

void Property::write_header(std::span<std::byte> entry) const {
  const std::size_t length = entry_format::value + value_size(entry_format::value);
  bytes::store_u32(entry, entry_format::id, id_);
  bytes::store_u32(entry, entry_format::length, static_cast<std::uint32_t>(length));
  bytes::store_u32(entry, entry_format::type, type_code() | (mark != 0 ? entry_format::mark_bit : 0));
}

void Property::read_header(std::span<const std::byte> entry, std::size_t value_size) {
  if (entry.size() >= entry_format::value)
    id_ = bytes::load_u32(entry, entry_format::id);
  if (entry.size() < entry_format::value + value_size)
    throw_value_crosses_end(id_);
}

std::size_t PropertyWord::value_size(std::size_t value_offset) const {
  return with_padding(value_offset, entry_format::word_size);
}

void PropertyWord::write(std::span<std::byte> entry) const {
  write_header(entry);
  bytes::store_u32(entry, entry_format::value, word_);
}

void PropertyWord::read(std::span<const std::byte> entry) {
  read_header(entry, entry_format::word_size);
  word_ = bytes::load_u32(entry, entry_format::value);
}

PropertyString::PropertyString(std::uint32_t id, std::string value) : Property(id), value_(std::move(value)) {
  value_.resize(std::min(value_.size(), value_.find('\0')));
}

std::size_t PropertyString::value_size(std::size_t value_offset) const {
  return with_padding(value_offset, value_.size() + 1);
}

void PropertyString::write(std::span<std::byte> entry) const {
  write_header(entry);
  const auto text = std::as_bytes(std::span(value_));
  const auto end = std::ranges::copy(text, entry.subspan(entry_format::value).begin()).out;
  *end = std::byte{0};
}

void PropertyString::read(std::span<const std::byte> entry) {
  read_header(entry, 1);
  const std::span<const std::byte> rest = entry.subspan(entry_format::value);
  const auto end = std::ranges::find(rest, std::byte{0});
  if (end == rest.end())
    throw_value_crosses_end(id());
  value_.clear();
  std::transform(rest.begin(), end, std::back_inserter(value_),
                 [](std::byte character) { return static_cast<char>(character); });
}

std::size_t PropertyNodeId::value_size(std::size_t value_offset) const {
  return with_padding(value_offset, entry_format::node_id_size);
}

void PropertyNodeId::write(std::span<std::byte> entry) const {
  write_header(entry);
  bytes::store_u32(entry, entry_format::value + entry_format::node_id_first, value_.k0);
  bytes::store_u32(entry, entry_format::value + entry_format::node_id_second, value_.k1);
}

void PropertyNodeId::read(std::span<const std::byte> entry) {
  read_header(entry, entry_format::node_id_size);
  value_ = {bytes::load_u32(entry, entry_format::value + entry_format::node_id_first),
            bytes::load_u32(entry, entry_format::value + entry_format::node_id_second)};
}

std::size_t PropertyBool::value_size(std::size_t value_offset) const {
  return with_padding(value_offset, entry_format::flag_size);
}

void PropertyBool::write(std::span<std::byte> entry) const {
  write_header(entry);
  entry[entry_format::value] = static_cast<std::byte>(value_ ? 1 : 0);
}

void PropertyBool::read(std::span<const std::byte> entry) {
  read_header(entry, entry_format::flag_size);
  value_ = entry[entry_format::value] != std::byte{0};
}

}  // namespace mdb
