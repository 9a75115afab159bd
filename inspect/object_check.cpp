#include "object_check.h"

#include <algorithm>
#include <array>

#include "nodemodel/node_types.h"
#include "record_check.h"

namespace inspect {
namespace {

using EntrySpan = std::span<const IndexEntry>;

// The entries of one index in the order of the objects they name, taken off from the front while the data
// blocks are walked in the same order.
class EntriesByObject {
 public:
  explicit EntriesByObject(std::vector<IndexEntry>& entries) {
    std::ranges::stable_sort(entries, {}, &IndexEntry::object);
    rest_ = entries;
  }

  // The entries before `object`, which name nothing.
  EntrySpan take_before(ObjectPlace object) {
    return take(std::ranges::lower_bound(rest_, object, {}, &IndexEntry::object));
  }
  EntrySpan take_of(ObjectPlace object) {
    return take(std::ranges::find_if(rest_, [&](const IndexEntry& entry) { return entry.object != object; }));
  }
  EntrySpan take_rest() { return take(rest_.end()); }

 private:
  EntrySpan take(EntrySpan::iterator end) {
    const auto taken = rest_.first(static_cast<std::size_t>(end - rest_.begin()));
    rest_ = rest_.subspan(taken.size());
    return taken;
  }

  EntrySpan rest_;
};

class ObjectCheck {
 public:
  ObjectCheck(const MdbImage& image, const BlockClasses& classes, std::vector<IndexTree>& trees,
              const Wanted& wanted, MdbFacts& facts, Report& report)
      : image_(image), classes_(classes), trees_(trees), wanted_(wanted), facts_(facts), report_(report) {
    facts_.records_by_type.resize(dbcache::node_type_count);
    for (std::size_t index = 0; index < std::min(trees.size(), honoured_index_count); ++index)
      indexes_.emplace_back(trees[index].entries);
  }

  void run() {
    for (std::uint64_t block = 0; block < classes_.size(); ++block) {
      if (classes_.is_data(block))
        check_block(static_cast<std::uint32_t>(block));
    }
    for (std::size_t index = 0; index < indexes_.size(); ++index)
      report_dangling(index, indexes_[index].take_rest());
  }

 private:
  using Entries = std::array<EntrySpan, honoured_index_count>;

  static Place place(const IndexEntry& entry) {
    return place_in_mdb(entry.found_at.block, entry.found_at.offset);
  }
  static std::string text_of_place(ObjectPlace object) {
    return text::concat("block ", object.block, ", offset ", object.offset);
  }

  void check_block(std::uint32_t block) {
    if (image_.is_hole(block)) {
      report_.damage(place_in_mdb(block, 0),
                     "data block: found it past the end of the file, expected its items");
      return;
    }
    const Bytes bytes = image_.block(block);
    const DataBlock found = check_data_block(block, classes_[block], bytes, report_);
    facts_.data_blocks.push_back({block, static_cast<std::uint32_t>(found.objects.size()),
                                  static_cast<std::uint32_t>(found.free_bytes)});
    for (const LiveObject& object : found.objects)
      check_object({block, object.offset}, ByteView(bytes).subspan(object.offset, object.length_bytes));
  }

  void check_object(ObjectPlace object, ByteView bytes) {
    Entries entries{};
    bool is_named = false;
    for (std::size_t index = 0; index < indexes_.size(); ++index) {
      report_dangling(index, indexes_[index].take_before(object));
      entries[index] = indexes_[index].take_of(object);
      is_named = is_named || !entries[index].empty();
    }
    if (!is_named) {
      facts_.unnamed_object_count += 1;
      report_.note(place_in_mdb(object.block, object.offset), "a live object that no index names");
      return;
    }
    Record record = check_record(object, bytes, wanted_.nodes, report_);
    count_record(record);
    if (wanted_.nodes) {
      facts_.nodes.push_back({object, static_cast<std::uint32_t>(bytes.size()), record.keys[0],
                              record.keys[1], record.node_type, std::move(record.properties)});
    }
    for (std::size_t index = 0; index < honoured_index_count; ++index)
      check_index(index, object, record, entries[index]);
  }

  void count_record(const Record& record) {
    if (record.node_type && *record.node_type < facts_.records_by_type.size()) {
      facts_.records_by_type[*record.node_type] += 1;
    } else {
      facts_.records_without_type += 1;
    }
  }

  // What a broken record does not show is not held against the index.
  void check_index(std::size_t index, ObjectPlace object, const Record& record, EntrySpan entries) {
    const std::optional<NodeKey>& expected = record.keys[index];
    bool is_found = false;
    for (const IndexEntry& entry : entries) {
      if (expected == entry.key && !is_found) {
        is_found = true;
      } else if (is_found && expected == entry.key) {
        report_.damage(place(entry), "index ", index, ", entry of ", text_of(entry.key),
                       ": found it a second time for ", text_of_place(object), ", expected it once");
      } else if (expected || record.is_whole) {
        report_.damage(place(entry), "index ", index, ": found key ", text_of(entry.key),
                       " for the record at ", text_of_place(object), ", expected ",
                       expected ? text_of(*expected) : "no entry");
      }
    }
    if (expected && record.is_whole && !is_found)
      report_missing(index, object, *expected);
  }

  // An index that could not be followed everywhere may have the entry where nobody has looked.
  void report_missing(std::size_t index, ObjectPlace object, NodeKey key) {
    if (index < trees_.size() && trees_[index].is_made && !trees_[index].is_whole)
      return;
    report_.damage(place_in_mdb(object.block, object.offset), "record: found ",
                   index < trees_.size() ? "no entry for it in index " : "no such index as ", index,
                   ", expected one under ", text_of(key));
  }

  void report_dangling(std::size_t index, EntrySpan entries) {
    for (const IndexEntry& entry : entries) {
      report_.damage(place(entry), "index ", index, ", entry of ", text_of(entry.key), ": found ",
                     text_of_place(entry.object), ", expected a live object");
    }
  }

  const MdbImage& image_;
  const BlockClasses& classes_;
  const std::vector<IndexTree>& trees_;
  const Wanted& wanted_;
  MdbFacts& facts_;
  Report& report_;
  std::vector<EntriesByObject> indexes_;
};

}  // namespace

void check_objects(const MdbImage& image, const BlockClasses& classes, std::vector<IndexTree> trees,
                   const Wanted& wanted, MdbFacts& facts, Report& report) {
  ObjectCheck(image, classes, trees, wanted, facts, report).run();
}

}  // namespace inspect
