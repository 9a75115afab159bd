#include <algorithm>
#include <span>

#include "views/json_parts.h"

namespace inspect {
namespace {

void write_tsdb(JsonWriter& json, const TsdbFacts& facts) {
  json.object([&] {
    json.member("file_bytes", facts.file_bytes)
        .member("version", facts.version)
        .member("block_size", facts.block_size)
        .member("block_count", facts.block_size == 0 ? 0 : facts.file_bytes / facts.block_size)
        .member("creation_time", facts.creation_time)
        .member("set_count", facts.set_count)
        .member("level_count", facts.level_count)
        .member("level_blocks", facts.level_blocks)
        .member("series_count", facts.series_count);
  });
}

void write_classes(JsonWriter& json, const MdbFacts& facts) {
  json.object([&] {
    for (std::size_t i = 0; i < facts.class_counts.size(); ++i) {
      if (!block_class_key(i).empty())
        json.member(block_class_key(i), facts.class_counts[i]);
    }
    json.member("unknown", facts.unknown_class_count);
  });
}

void write_index(JsonWriter& json, std::size_t number, const IndexFacts& facts) {
  json.object([&] {
    json.member("index", number)
        .member("root_block", facts.root_block)
        .member("made", facts.is_made)
        .member("whole", facts.is_whole)
        .member("node_count", facts.node_count)
        .member("leaf_count", facts.leaf_count)
        .member("entry_count", facts.entry_count);
  });
}

void write_records(JsonWriter& json, const MdbFacts& facts) {
  json.object([&] {
    for (std::uint32_t type = 0; type < facts.records_by_type.size(); ++type) {
      if (facts.records_by_type[type] != 0)
        json.member(node_type_text(type), facts.records_by_type[type]);
    }
  });
}

void write_mdb(JsonWriter& json, const MdbFacts& facts) {
  json.object([&] {
    json.member("file_bytes", facts.file_bytes)
        .member("version", facts.version)
        .member("block_size", facts.block_size)
        .member("block_count", facts.block_count)
        .member("map_first_block", facts.map_first_block)
        .member("data_first_block", facts.data_first_block);
    json.key("data_blocks_by_class");
    write_classes(json, facts);
    json.key("indexes").array([&] {
      for (std::size_t i = 0; i < std::min(facts.indexes.size(), honoured_index_count); ++i)
        write_index(json, i, facts.indexes[i]);
    });
    json.key("records_by_type");
    write_records(json, facts);
    json.member("records_without_type", facts.records_without_type)
        .member("unnamed_objects", facts.unnamed_object_count);
  });
}

void write_half(JsonWriter& json, const HalfFacts& facts) {
  json.object([&] {
    json.member("readable", facts.pointer_is_valid)
        .member("serial", facts.serial)
        .member("first_entry", facts.first_entry)
        .member("transaction_count", facts.transaction_count)
        .member("used_bytes", facts.used_bytes)
        .member("capacity_bytes", facts.capacity_bytes);
  });
}

void write_journal_summary(JsonWriter& json, const JournalFacts& facts) {
  json.object([&] {
    json.member("internal", facts.is_internal)
        .text_or_null("path", facts.path)
        .member("length_bytes", facts.length_bytes)
        .member("version", facts.version)
        .member("newest_half", facts.newest_half);
    json.key("halves").array_of(facts.halves, [&](const HalfFacts& half) { write_half(json, half); });
    json.member("replayed_transactions", facts.replayed_transactions)
        .member("replayed_updates", facts.replayed_updates);
  });
}

// A member for a file that may not be there.
template <typename Facts, typename Write>
void write_or_null(JsonWriter& json, std::string_view key, const std::optional<Facts>& facts, Write write) {
  json.key(key);
  if (facts) {
    write(json, *facts);
  } else {
    json.value(std::nullopt);
  }
}

}  // namespace

void write_verdict(JsonWriter& json, const std::string& directory, const Inspection& inspection) {
  json.member("format", 1U)
      .member("directory", directory)
      .member("verdict", name_of(inspection.verdict()))
      .member("damage_count", inspection.report.damage_count())
      .member("note_count", inspection.report.note_count());
  json.key("unavailable").array_of(inspection.unavailable, [&](const std::string& line) {
    json.value(std::string_view(line));
  });
}

void write_summary(JsonWriter& json, const Inspection& inspection) {
  json.object([&] {
    write_or_null(json, "tsdb", inspection.tsdb, write_tsdb);
    write_or_null(json, "mdb", inspection.mdb, write_mdb);
    write_or_null(json, "journal", inspection.journal, write_journal_summary);
  });
}

void write_findings(JsonWriter& json, const Report& report, std::size_t most) {
  const std::size_t count = std::min(most, report.findings().size());
  json.array_of(std::span(report.findings()).first(count), [&](const Finding& finding) {
    json.object([&] {
      json.member("severity", finding.severity == Severity::damage ? "damage" : "note")
          .member("file", name_of(finding.place.file))
          .member("block", finding.place.block)
          .member("offset", finding.place.offset)
          .member("text", std::string_view(finding.text));
    });
  });
}

}  // namespace inspect
