#include "record_check.h"

#include <algorithm>
#include <array>
#include <set>

#include "common/bytes.h"
#include "metadb/objects/data_block.h"
#include "nodemodel/node_types.h"
#include "nodemodel/record_format.h"

namespace inspect {
namespace {

namespace entry_format = mdb::format::property_entry;
namespace property_id = mdb::property_id;
namespace property_type = mdb::property_type;

struct TypeRule {
  std::uint32_t code;
  std::size_t value_bytes;  // 0 for a text, which tells its length itself
  std::string_view name;
};

constexpr std::array<TypeRule, 6> type_rules = {{
    {property_type::number, entry_format::word_size, "number"},
    {property_type::string, 0, "text"},
    {property_type::node_id, entry_format::node_id_size, "node ID"},
    {property_type::enumeration, entry_format::word_size, "node type"},
    {property_type::flag, entry_format::flag_size, "flag"},
    {property_type::check_id, entry_format::word_size, "check ID"},
}};

// The properties that the storage relies on, and their types.
struct PropertyRule {
  std::uint32_t id;
  std::uint32_t type;
};

constexpr std::uint32_t membership_flag = 502;

constexpr std::array<PropertyRule, 8> property_rules = {{
    {property_id::node_id, property_type::node_id},
    {property_id::parent_id, property_type::node_id},
    {property_id::node_type, property_type::enumeration},
    {property_id::name, property_type::string},
    {membership_flag, property_type::flag},
    {59, property_type::node_id},
    {3800, property_type::node_id},
    {3901, property_type::node_id},
}};

// The property that each index is keyed by; index 2 takes those records alone whose flag is true.
constexpr std::array<std::uint32_t, honoured_index_count> key_properties = {
    property_id::node_id, property_id::parent_id, property_id::parent_id, 59, 3800, 3901};
constexpr std::size_t flagged_index = 2;

template <typename Rules, typename Member>
auto find_rule(const Rules& rules, std::uint32_t value, Member member) -> decltype(&rules[0]) {
  const auto found = std::ranges::find(rules, value, member);
  return found == rules.end() ? nullptr : &*found;
}

class RecordCheck {
 public:
  RecordCheck(ObjectPlace object, ByteView bytes, bool keep_properties, Report& report)
      : object_(object), bytes_(bytes), keep_properties_(keep_properties), report_(report) {}

  Record run() {
    std::size_t position = mdb::format::item::record;
    while (position < bytes_.size()) {
      const std::size_t room = bytes_.size() - position;
      const std::uint32_t length =
          room < entry_format::value ? 0 : bytes::load_u32(bytes_, position + entry_format::length);
      if (length < entry_format::value || length > room || length % entry_format::alignment != 0) {
        report_.damage(place(position + entry_format::length), "length of a record's entry: found ", length,
                       ", expected a multiple of ", entry_format::alignment, " from 16 to ", room);
        return record_;
      }
      check_entry(position, bytes_.subspan(position, length));
      position += length;
    }
    record_.is_whole = true;
    if (!is_flagged_)
      record_.keys[flagged_index].reset();
    return record_;
  }

 private:
  Place place(std::size_t position) const { return place_in_mdb(object_.block, object_.offset + position); }

  void check_entry(std::size_t position, ByteView entry) {
    const std::uint32_t id = bytes::load_u32(entry, entry_format::id);
    const std::uint32_t type = bytes::load_u32(entry, entry_format::type) & ~entry_format::mark_bit;
    if (!seen_.insert(id).second) {
      report_.damage(place(position), "property: found ", id, " a second time, expected it once in a record");
      return;
    }
    const TypeRule* const rule = find_rule(type_rules, type, &TypeRule::code);
    bool can_be_read = false;
    if (rule == nullptr) {
      report_.damage(place(position + entry_format::type), "type code of property ", id, ": found ", type,
                     ", expected 1, 3, 4, 5, 6 or 9");
    } else if (check_length(position, entry, id, *rule)) {
      check_value(position, entry, id, type);
      can_be_read = true;
    }
    if (keep_properties_) {
      const bool is_marked = (bytes::load_u32(entry, entry_format::type) & entry_format::mark_bit) != 0;
      const ByteView value = entry.subspan(entry_format::value);
      record_.properties.push_back(
          {id, type, is_marked, can_be_read ? value_of(value, type) : Bytes(value.begin(), value.end())});
    }
    check_property_type(position, id, type);
    note_keys(entry, id);
  }

  bool check_length(std::size_t position, ByteView entry, std::uint32_t id, const TypeRule& rule) {
    std::size_t value_bytes = rule.value_bytes;
    if (value_bytes == 0) {
      const ByteView value = entry.subspan(entry_format::value);
      const auto end = std::ranges::find(value, std::byte{0});
      if (end == value.end()) {
        report_.damage(place(position + entry_format::value), "text of property ", id,
                       ": found no zero byte, expected one within its ", value.size(), " bytes");
        return false;
      }
      value_bytes = static_cast<std::size_t>(end - value.begin()) + 1;
    }
    const std::size_t expected = entry_format::padded(entry_format::value + value_bytes);
    report_.expect_equal(place(position + entry_format::length), text::concat("length of property ", id),
                         entry.size(), expected);
    return entry.size() >= expected;
  }

  void check_value(std::size_t position, ByteView entry, std::uint32_t id, std::uint32_t type) {
    if (type == property_type::flag) {
      const auto value = std::to_integer<std::uint32_t>(entry[entry_format::value]);
      if (value > 1) {
        report_.damage(place(position + entry_format::value), "flag of property ", id, ": found ", value,
                       ", expected 0 or 1");
      }
    } else if (type == property_type::enumeration) {
      const std::uint32_t value = bytes::load_u32(entry, entry_format::value);
      if (value >= dbcache::node_type_count) {
        report_.damage(place(position + entry_format::value), "node type of property ", id, ": found ", value,
                       ", expected less than ", dbcache::node_type_count);
      }
      if (id == property_id::node_type)
        record_.node_type = value;
    }
  }

  // REQUIRES: the value is as long as its type wants it.
  static PropertyValue value_of(ByteView value, std::uint32_t type) {
    switch (type) {
      case property_type::string: {
        std::string text;
        for (std::size_t i = 0; value[i] != std::byte{0}; ++i)
          text += std::to_integer<char>(value[i]);
        return text;
      }
      case property_type::node_id:
        return NodeKey{bytes::load_u32(value, entry_format::node_id_first),
                       bytes::load_u32(value, entry_format::node_id_second)};
      case property_type::flag:
        return value[0] != std::byte{0};
      default:
        return bytes::load_u32(value, 0);
    }
  }

  void check_property_type(std::size_t position, std::uint32_t id, std::uint32_t type) {
    const PropertyRule* const rule = find_rule(property_rules, id, &PropertyRule::id);
    if (rule == nullptr || rule->type == type || find_rule(type_rules, type, &TypeRule::code) == nullptr)
      return;
    report_.damage(place(position + entry_format::type), "type code of property ", id, ": found ", type,
                   ", expected ", rule->type, " (", find_rule(type_rules, rule->type, &TypeRule::code)->name,
                   ")");
  }

  void note_keys(ByteView entry, std::uint32_t id) {
    if (id == membership_flag && entry.size() > entry_format::value)
      is_flagged_ = entry[entry_format::value] != std::byte{0};
    if (entry.size() < entry_format::value + entry_format::node_id_size)
      return;
    for (std::size_t index = 0; index < key_properties.size(); ++index) {
      if (key_properties[index] == id) {
        record_.keys[index] =
            NodeKey{bytes::load_u32(entry, entry_format::value + entry_format::node_id_first),
                    bytes::load_u32(entry, entry_format::value + entry_format::node_id_second)};
      }
    }
  }

  ObjectPlace object_;
  ByteView bytes_;
  bool keep_properties_;
  Report& report_;
  Record record_;
  std::set<std::uint32_t> seen_;
  bool is_flagged_ = false;
};

}  // namespace

std::string_view property_type_name(std::uint32_t code) {
  const TypeRule* const rule = find_rule(type_rules, code, &TypeRule::code);
  return rule == nullptr ? std::string_view{} : rule->name;
}

Record check_record(ObjectPlace object, ByteView bytes, bool keep_properties, Report& report) {
  return RecordCheck(object, bytes, keep_properties, report).run();
}

}  // namespace inspect
