#include "createdb/creation.h"

#include <functional>

#include "createdb/create_files.h"
#include "createdb/progress.h"
#include "createdb/settings.h"
#include "metadb/objects/database.h"
#include "metadb/objects/indexes.h"
#include "metadb/storage/backing_store.h"
#include "metadb/storage/create_mdb.h"
#include "metadb/storage/journal.h"
#include "nodemodel/serialization_cache.h"
#include "timeseries/create_tsdb.h"

namespace createdb {

void create_mdb() {
  CreationSettings& settings = creation_settings;
  settings.journal_size = (settings.journal_size + mdb::new_mdb_block_bytes - 1) / mdb::new_mdb_block_bytes;
  mdb::CreateMdbSettings wanted = {
      .path = settings.mdb_path,
      .journal_placement =
          settings.journal_external ? mdb::JournalPlacement::external : mdb::JournalPlacement::internal,
      .journal_path = settings.journal_path,
      .journal_blocks = settings.journal_size,
      .make_database = settings.mdb_placement == Placement::directory ? create_zero_file : prepare_store,
  };
  if (settings.journal_placement == Placement::directory)
    wanted.make_journal = create_zero_file;
  mdb::create_mdb(wanted);
}

void create_tsdb() {
  const bool on_device = creation_settings.tsdb_placement == Placement::block_device;
  GrowthProgress progress;
  tsdb::create_tsdb({
      .path = creation_settings.tsdb_path,
      .placement = on_device ? tsdb::Placement::block_special : tsdb::Placement::directory,
      .block_size = creation_settings.block_size,
      .chains = creation_settings.chains,
      .initial_checks = creation_settings.initial_checks,
      .create_file = create_zero_file,
      .growth_progress = std::bind_front(&GrowthProgress::advance, &progress),
  });
}

void close_mdb() {
  mdb::journal_shutdown();
  mdb::backing_sync();
  mdb::mdb_close();
}

void reopen_mdb() {
  mdb::mdb_open(creation_settings.mdb_path);
  mdb::node_model_init();
  mdb::index_init();
}

}  // namespace createdb
