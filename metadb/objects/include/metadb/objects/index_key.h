// What an index maps: two-word keys to object references, and how messages print them.

#pragma once

#include <compare>
#include <cstdint>
#include <string>

#include "common/text.h"
#include "metadb/objects/reference.h"

namespace mdb {

// Ordered by k0, then by k1, both unsigned.
struct IndexKey {
  std::uint32_t k0 = 0;
  std::uint32_t k1 = 0;

  auto operator<=>(const IndexKey&) const = default;
};

// A piece of text::concat: "k0.k1".
inline void append(std::string& text, const IndexKey& key) {
  text += text::concat(key.k0, ".", key.k1);
}
// A piece of text::concat: "block:offset".
inline void append(std::string& text, const ObjectReference& reference) {
  text += text::concat(reference.block, ":", reference.offset);
}

}  // namespace mdb
