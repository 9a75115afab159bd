// What a database pair consists of in detail: facts in the number of the records, levels and transactions.
// The large ones are kept only when a view asks for them.

#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace inspect {

// The details that an inspection keeps.
struct Wanted {
  bool chains = false;   // levels and time series
  bool journal = false;  // transactions with their updates
  bool entries = false;  // of the indexes
  bool nodes = false;    // records with their properties
};

struct NodeKey {
  std::uint32_t first = 0;
  std::uint32_t second = 0;

  auto operator<=>(const NodeKey&) const = default;
};

// "first.second", both decimal, as everything prints it. Throws nothing but what memory throws.
std::string text_of(NodeKey key);

// Where an object is, as records and indexes point at it.
struct ObjectPlace {
  std::uint32_t block = 0;
  std::uint32_t offset = 0;

  auto operator<=>(const ObjectPlace&) const = default;
};

struct BlockRun {
  std::uint64_t first_block = 0;
  std::uint64_t block_count = 0;
};

// A level of a time series: an entry of the lblock chain, and those of its number in head and tail.
struct LevelFacts {
  std::uint32_t number = 0;
  std::uint32_t first_block = 0;
  std::uint32_t block_count = 0;
  std::uint32_t next_level = 0;  // 0 for none
  std::uint32_t parameter = 0;
  std::uint32_t head = 0;
  std::uint32_t tail = 0;
};

struct SeriesFacts {
  std::uint64_t check_id = 0;
  std::uint32_t datatype = 0;
  std::vector<std::uint32_t> levels;  // their numbers, as far as they could be followed
};

struct UpdateFacts {
  std::uint64_t offset = 0;  // of the entry in the journal
  std::uint64_t target = 0;  // byte offset in main.odb
  std::uint32_t length = 0;
};

// What becomes of a transaction when the database is opened.
enum class TransactionFate {
  replayed,
  superseded,  // it stands in the older half: main.odb has it already
  does_not_fit,
  torn,
  begun  // nothing but its begin entry was written
};

struct TransactionFacts {
  TransactionFate fate = TransactionFate::replayed;
  std::uint64_t offset = 0;  // of its begin entry in the journal
  std::uint64_t end = 0;     // the offset behind it, or where it breaks off
  std::uint64_t serial = 0;
  std::vector<UpdateFacts> updates;
};

// A block of an index. The nodes of a tree stand in the order of a walk from the root: each node is followed
// by what lies below it, the first child first.
struct IndexNodeFacts {
  std::uint32_t block = 0;
  std::uint32_t depth = 0;  // 0 for the root
  bool is_leaf = false;
  std::uint32_t key_count = 0;
  std::uint32_t capacity = 0;
  NodeKey first_key{};  // of a node that has keys
  NodeKey last_key{};
};

// In the order of the leaves, of which each has as many as it has keys.
struct IndexEntryFacts {
  NodeKey key;
  ObjectPlace object;
};

struct DataBlockFacts {
  std::uint32_t block = 0;
  std::uint32_t object_count = 0;
  std::uint32_t free_bytes = 0;
};

// The bytes stand for a value that its type code does not explain.
using PropertyValue = std::variant<std::vector<std::byte>, std::uint32_t, bool, std::string, NodeKey>;

struct PropertyFacts {
  std::uint32_t id = 0;
  std::uint32_t type = 0;  // without the mark
  bool is_marked = false;
  PropertyValue value;
};

// A record that an index names.
struct NodeFacts {
  ObjectPlace place;
  std::uint32_t length_bytes = 0;  // of the object, its header included
  std::optional<NodeKey> id{};
  std::optional<NodeKey> parent{};
  std::optional<std::uint32_t> type{};
  std::vector<PropertyFacts> properties;  // in the order of the record
};

}  // namespace inspect
