// The properties that a node is made of: each a typed value under a numeric id.

#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "metadb/objects/index_key.h"
#include "nodemodel/record_format.h"

namespace mdb {

// A node id is the key that the indexes know it by.
using NodeId = IndexKey;

class Property {
 public:
  virtual ~Property() = default;

  // The code of the value's kind as it is stored, without the mark.
  virtual std::uint32_t type_code() const = 0;
  // Bytes of the value that starts at `value_offset`, with the padding that lets it end at a multiple of 8.
  virtual std::size_t value_size(std::size_t value_offset) const = 0;
  // Encodes the entry at the start of `entry`; the padding keeps what it holds.
  // REQUIRES: `entry` has room for 12 bytes and value_size(12).
  virtual void write(std::span<std::byte> entry) const = 0;
  // Takes id and value from an entry; its type is the caller's business.
  // Throws error_need_repair when the value does not lie within `entry`.
  virtual void read(std::span<const std::byte> entry) = 0;

  std::uint32_t id() const { return id_; }
  // Not zero: the top bit of the stored type is set.
  std::uint8_t mark = 0;

 protected:
  explicit Property(std::uint32_t id) : id_(id) {}
  Property(const Property&) = default;
  Property& operator=(const Property&) = default;

  // Encodes id, length, type and mark.
  void write_header(std::span<std::byte> entry) const;
  // Checks that `value_size` bytes of value are there and takes the id.
  void read_header(std::span<const std::byte> entry, std::size_t value_size);

 private:
  std::uint32_t id_;
};

// Whatever is stored as one word; the kinds differ in their type code only.
class PropertyWord : public Property {
 public:
  std::size_t value_size(std::size_t value_offset) const final;
  void write(std::span<std::byte> entry) const final;
  void read(std::span<const std::byte> entry) final;

 protected:
  PropertyWord(std::uint32_t id, std::uint32_t word) : Property(id), word_(word) {}
  std::uint32_t word() const { return word_; }

 private:
  std::uint32_t word_;
};

template <typename Value, std::uint32_t TypeCode>
class PropertyTypedWord : public PropertyWord {
 public:
  explicit PropertyTypedWord(std::uint32_t id = 0, Value value = {})
      : PropertyWord(id, static_cast<std::uint32_t>(value)) {}

  std::uint32_t type_code() const override { return TypeCode; }
  Value value() const { return static_cast<Value>(word()); }
};

// The kinds of 32-bit numbers; kind 8 holds check ids and is stored under a code of another number.
template <std::uint32_t Kind>
inline constexpr std::uint32_t something32_type = 0;
template <>
inline constexpr std::uint32_t something32_type<1> = property_type::number;
template <>
inline constexpr std::uint32_t something32_type<8> = property_type::check_id;

template <typename Value, std::uint32_t Kind>
class PropertySomething32 : public PropertyTypedWord<Value, something32_type<Kind>> {
 public:
  static_assert(something32_type<Kind> != 0, "no such kind of number");
  using PropertyTypedWord<Value, something32_type<Kind>>::PropertyTypedWord;
};

template <typename Enumeration>
class PropertyEnum : public PropertyTypedWord<Enumeration, property_type::enumeration> {
 public:
  using PropertyTypedWord<Enumeration, property_type::enumeration>::PropertyTypedWord;
};

class PropertyString : public Property {
 public:
  // The text ends at its first zero byte, if it has one.
  explicit PropertyString(std::uint32_t id = 0, std::string value = {});

  std::uint32_t type_code() const override { return property_type::string; }
  std::size_t value_size(std::size_t value_offset) const override;
  void write(std::span<std::byte> entry) const override;
  void read(std::span<const std::byte> entry) override;
  const std::string& value() const { return value_; }

 private:
  std::string value_;
};

class PropertyNodeId : public Property {
 public:
  explicit PropertyNodeId(std::uint32_t id = 0, NodeId value = {}) : Property(id), value_(value) {}

  std::uint32_t type_code() const override { return property_type::node_id; }
  std::size_t value_size(std::size_t value_offset) const override;
  void write(std::span<std::byte> entry) const override;
  void read(std::span<const std::byte> entry) override;
  NodeId value() const { return value_; }

 private:
  NodeId value_;
};

class PropertyBool : public Property {
 public:
  explicit PropertyBool(std::uint32_t id = 0, bool value = false) : Property(id), value_(value) {}

  std::uint32_t type_code() const override { return property_type::flag; }
  std::size_t value_size(std::size_t value_offset) const override;
  void write(std::span<std::byte> entry) const override;
  void read(std::span<const std::byte> entry) override;
  bool value() const { return value_; }

 private:
  bool value_;
};

}  // namespace mdb
