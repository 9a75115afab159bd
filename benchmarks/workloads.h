// The workloads by their stable names.

#pragma once

#include "measure.h"

namespace bench {

// Each prints its lines of the table.
void run_create_default(const Options& options);
void run_create_1000(const Options& options);
void run_store(const Options& options);
void run_store_sync(const Options& options);
void run_get(const Options& options);
void run_children(const Options& options);
void run_re_parent(const Options& options);
void run_rewrite(const Options& options);
void run_free(const Options& options);
void run_miss(const Options& options);
void run_open(const Options& options);
void run_replay(const Options& options);
void run_crc32(const Options& options);
void run_md5(const Options& options);
void run_levels(const Options& options);
void run_check_ids(const Options& options);
void run_grow(const Options& options);

// The directory of a closed store of that many nodes, filled at the first call.
std::filesystem::path prepared_quenor(const Options& options, std::size_t count);

}  // namespace bench
