// What is to be created. The options or the dialogue fill one process-wide record, the summaries show it
// and the creation steps work from it.

#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace createdb {

// What can be placed at a path. No path is recognised as a block device today; who asks handles it anyway.
enum class Placement : std::int32_t { block_device = 0, directory = 1, unusable = 2 };

struct CreationSettings {
  std::string mdb_path;  // all paths name the file itself
  Placement mdb_placement = Placement::unusable;
  bool journal_external = false;
  std::string journal_path;  // empty for an internal journal
  Placement journal_placement = Placement::unusable;
  std::uint32_t journal_size = 0;  // bytes; from create_mdb() on in blocks of the meta database
  std::uint32_t chains = 0;        // chain sets
  std::uint32_t block_size = 0;    // bytes of a time series block
  std::uint32_t initial_checks = 0;
  Placement tsdb_placement = Placement::unusable;
  std::string tsdb_path;
  bool force = false;  // the confirmation answers itself
};

extern CreationSettings creation_settings;

inline constexpr std::uint32_t bytes_per_mebibyte = 1'048'576;

inline constexpr std::string_view mdb_file_name = "main.odb";
inline constexpr std::string_view journal_file_name = "main.odbj";
inline constexpr std::string_view tsdb_file_name = "main.tsdb";

// The path of a file in a directory. The separator is a backslash on every system.
std::string path_in(std::string_view directory, std::string_view file_name);

// Fills the record with the defaults for three files in `directory`; `force` stays as it is.
// Ends the run when the directory cannot hold them.
void use_default_settings(const std::string& directory);

}  // namespace createdb
