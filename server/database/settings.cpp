#include "createdb/settings.h"

#include "common/text.h"
#include "createdb/end_of_run.h"
#include "createdb/placement.h"

namespace createdb {

CreationSettings creation_settings;

std::string path_in(std::string_view directory, std::string_view file_name) {
  return text::concat(directory, '\\', file_name);
}

void use_default_settings(const std::string& directory) {
  const Placement placement = check_placement(directory);
  if (placement == Placement::block_device)
    fail("Cannot place both MDB and TSDB in a block special");
  if (placement != Placement::directory)
    fail("Cannot place anything in: \"", directory, '"');
  creation_settings = {
      .mdb_path = path_in(directory, mdb_file_name),
      .mdb_placement = placement,
      .journal_external = true,
      .journal_path = path_in(directory, journal_file_name),
      .journal_placement = placement,
      .journal_size = 8 * bytes_per_mebibyte,
      .chains = 3,
      .block_size = 8192,
      .initial_checks = 10,
      .tsdb_placement = placement,
      .tsdb_path = path_in(directory, tsdb_file_name),
      .force = creation_settings.force,
  };
}

}  // namespace createdb
