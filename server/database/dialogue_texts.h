// The dialogue's questions, the ranges of their answers and the explanations before them.

#pragma once

#include <cstdint>
#include <limits>
#include <string_view>

#include "createdb/settings.h"

namespace createdb {

struct PathQuestion {
  std::string_view text;
  std::string_view file_name;  // what is placed in the directory
  bool takes_block_device;
};

inline constexpr PathQuestion mdb_path_question = {"Path to meta database: ", mdb_file_name, false};
inline constexpr PathQuestion journal_path_question = {"Path to journal: ", journal_file_name, false};
inline constexpr PathQuestion tsdb_path_question = {"Path to TSDB: ", tsdb_file_name, true};

// 0 lies outside every range: it stands for an answer that is no number.
struct NumberQuestion {
  std::string_view text;
  std::uint32_t lowest;
  std::uint32_t highest;
  bool two_power;
  bool has_refusal;  // says what is accepted before it asks again
};

inline constexpr NumberQuestion journal_size_question = {
    .text = "Journal size [megabytes] (recommended: 8): ",
    .lowest = 4,
    .highest = 128,
    .two_power = false,
    .has_refusal = true,
};
inline constexpr NumberQuestion chains_question = {
    .text = "Number of chains (recommended: 3): ",
    .lowest = 2,
    .highest = 5,
    .two_power = false,
    .has_refusal = true,
};
inline constexpr NumberQuestion block_size_question = {
    .text = "Block size (recommended: 8192): ",
    .lowest = 1024,
    .highest = 16384,
    .two_power = true,
    .has_refusal = true,
};
inline constexpr NumberQuestion checks_question = {
    .text = "Estimated number of checks (recommended: 1000): ",
    .lowest = 1,
    .highest = std::numeric_limits<std::uint32_t>::max(),
    .two_power = false,
    .has_refusal = false,
};

inline constexpr std::string_view summary_rule = "---------------------------------------------";

inline constexpr std::string_view mdb_path_explanation[] = {
    "The meta database can be placed either in a file",
    "or on a block device. If placed in a file, it",
    "will grow as needed. For performance reasons it",
    "may be desirable to place it on a block device",
    "",
};

inline constexpr std::string_view journal_type_explanation[] = {
    "",
    "The meta database journal can optionally be",
    "placed on a different device than the meta",
    "database itself. This can be used to achieve",
    "better scalability, by utilizing multiple disk",
    "systems. The default however is to place the",
    "journal inside the meta database. This is",
    "recommended, unless you have specific reasons",
    "not to do so.",
    "",
};

inline constexpr std::string_view journal_path_explanation[] = {
    "",
    "Please specify a full path to the device or",
    "directory in which the journal should be placed.",
    "",
};

inline constexpr std::string_view journal_size_explanation[] = {
    "",
    "The journal size is a trade-off between disk",
    "and CPU utilization. If you have a fast CPU and",
    "a slow disk, a large journal is good. If your",
    "CPU is slow and your disk fast, a smaller",
    "journal is better.",
    "",
};

inline constexpr std::string_view chains_explanation_before_range[] = {
    "",
    "The number of chains is usually set to 2 or 3.",
};
inline constexpr std::string_view chains_explanation_after_range[] = {
    "A high number may have a negative impact on",
    "performance, whereas a low number will lower",
    "the amount of fault-tolerance in case parts of",
    "your database file are corrupted (by bad blocks",
    "on the disk, for example).",
    "",
};

inline constexpr std::string_view block_size_explanation_after_range[] = {
    "must always be a power of two. The block size", "determines the maximum database size possible,",
    "and influences database performance. An 8192",  "byte block size limits the database to 32 TB.",
    "A 4096 byte block size limits it to 16 TB.",    "",
};

inline constexpr std::string_view checks_explanation[] = {
    "",
    "An estimate of the number of checks this database",
    "will hold, can help the creation of the database",
    "and improve performance. This number need not be",
    "precise - specifying a number higher than the",
    "actual amount is recommended.",
    "",
};

inline constexpr std::string_view tsdb_path_explanation[] = {
    "",
    "The TSDB can be placed either on a block-special",
    "or in a file on a file-system. Please specify the",
    "path to the block-special device, or the wanted",
    "directory on a file-system.",
    "",
};

}  // namespace createdb
