// What the journal costs those who do not store: a cache miss, an opening, a replay.

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>

#include "common/text.h"
#include "common/time.h"
#include "metadb/objects/database.h"
#include "metadb/storage/backing_store.h"
#include "metadb/storage/buffer_cache.h"
#include "metadb/storage/journal.h"
#include "metadb/storage/journal_format.h"
#include "metadb/storage/mapped_journal.h"
#include "quenor_store.h"
#include "workloads.h"

namespace bench {
namespace {

constexpr std::uint64_t mebibyte = std::uint64_t{1} << 20;
constexpr std::uint32_t block_count = 16'384;

const std::vector<std::byte> image(block_bytes, std::byte{0x5A});

// One transaction that leaves hardly any room in the half, of whole blocks at random places.
std::uint64_t fill_half() {
  std::uint64_t count = 0;
  mdb::Transaction transaction;
  for (; mdb::journal_free() >= 2 * mdb::format::update_entry_size(block_bytes); ++count) {
    const std::uint64_t block =
        first_data_block + 2 + scrambled(count) % (block_count - first_data_block - 2);
    mdb::transaction_update(image, block * block_bytes);
  }
  transaction.end();
  return count;
}

void open_grown(const Options& options, std::uint64_t journal_bytes, std::uint64_t cache_bytes) {
  const StoreSettings settings{.directory = fresh_directory(options, "journal"),
                               .cache_bytes = cache_bytes,
                               .journal_bytes = journal_bytes};
  create_database(settings);
  open_database(settings);
  mdb::backing_grow(block_count - 1);
  mdb::backing_sync();
}

// A synchronous transaction at the beginning of a second, so that no apply falls due in this one.
void begin_second() {
  for (const std::uint64_t second = timing::monotonic_seconds(); timing::monotonic_seconds() == second;) {
  }
  mdb::Transaction transaction;
  mdb::transaction_update(image, std::uint64_t{block_count - 1} * block_bytes);
  transaction.end(false);
}

void require_unapplied() {
  std::vector<std::byte> stored(block_bytes);
  mdb::byte_read(stored, (first_data_block + 2 + scrambled(0) % (block_count - first_data_block - 2)) *
                             std::uint64_t{block_bytes});
  if (stored == image)
    throw std::runtime_error("The half was applied meanwhile");
}

Outcome misses(const Options& options, std::uint64_t half_bytes, bool is_full) {
  constexpr std::uint64_t cached_blocks = 64;
  open_grown(options, 2 * half_bytes, cached_blocks * block_bytes);
  begin_second();
  if (is_full) {
    fill_half();
    require_unapplied();
  }
  std::byte sum{};
  Outcome outcome = timed_operations(options.sized(50'000, 1'000), 1, [&](std::size_t i) {
    const std::uint64_t block = first_data_block + scrambled(~i) % (block_count - first_data_block);
    sum ^= mdb::cache_get_block(static_cast<std::uint32_t>(block))[0];
  });
  outcome.figure = 1000 / outcome.figure;
  close_database();
  return outcome;
}

class PlainFile {
 public:
  explicit PlainFile(const std::filesystem::path& path)
      : descriptor_(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)) {}
  ~PlainFile() { ::close(descriptor_); }
  PlainFile(const PlainFile&) = delete;
  PlainFile& operator=(const PlainFile&) = delete;
  int descriptor() const { return descriptor_; }

 private:
  int descriptor_;
};

Outcome open_store(const StoreSettings& settings) {
  const Clock clock;
  open_database(settings);
  const double seconds = clock.seconds();
  close_database();
  return {seconds * 1000, {}};
}

Outcome read_map(const StoreSettings& settings) {
  const Clock clock;
  const PlainFile file(settings.directory / "main.odb");
  std::vector<std::byte> block(block_bytes);
  for (std::uint32_t i = 1; i <= map_blocks; ++i) {
    if (::pread(file.descriptor(), block.data(), block.size(), off_t{i} * block_bytes) != block_bytes)
      throw std::runtime_error("Cannot read the map");
  }
  return {clock.seconds() * 1000, {}};
}

double rate(std::uint64_t blocks, double seconds) {
  return static_cast<double>(blocks) * block_bytes / seconds / 1e6;
}

Outcome replay(const Options& options, std::uint64_t half_bytes) {
  open_grown(options, 2 * half_bytes, 64 * mebibyte);
  const std::uint64_t blocks = fill_half();
  mdb::journal_sync();
  mdb::mdb_close();
  const Clock clock;
  mdb::mdb_open(options.directory / "journal" / "main.odb");
  const double seconds = clock.seconds();
  close_database();
  return {rate(blocks, seconds), {}};
}

Outcome copy_images(const Options& options, std::uint64_t half_bytes) {
  const PlainFile file(fresh_directory(options, "journal") / "copy");
  for (std::uint32_t block = 0; block < block_count; ++block) {
    if (::pwrite(file.descriptor(), image.data(), image.size(), off_t{block} * block_bytes) != block_bytes)
      throw std::runtime_error("Cannot write the copy");
  }
  ::fsync(file.descriptor());
  const std::uint64_t blocks = half_bytes / (block_bytes + 24);
  const Clock clock;
  for (std::uint64_t i = 0; i < blocks; ++i) {
    const auto place = static_cast<off_t>(scrambled(i) % block_count * block_bytes);
    if (::pwrite(file.descriptor(), image.data(), image.size(), place) != block_bytes)
      throw std::runtime_error("Cannot write the copy");
  }
  ::fsync(file.descriptor());
  return {rate(blocks, clock.seconds()), {}};
}

}  // namespace

void run_miss(const Options& options) {
  for (const std::uint64_t half : {4 * mebibyte, 64 * mebibyte}) {
    contest(options, text::concat("miss, half of ", half / mebibyte, " MiB full"), "µs",
            {{"full", [&] { return misses(options, half, true); }},
             {"half empty", [&] { return misses(options, half, false); }, at_most(1.2)}});
  }
}

void run_open(const Options& options) {
  const std::size_t count = options.sized(1'000'000, 10'000);
  const StoreSettings settings{.directory = prepared_quenor(options, count)};
  contest(options, text::concat("open ", count), "ms",
          {{"Quenor", [&] { return open_store(settings); }},
           {"floor: reading the map", [&] { return read_map(settings); }, at_most_beyond(5)}});
}

void run_replay(const Options& options) {
  const std::uint64_t half = options.sized(64, 4) * mebibyte;
  contest(options, text::concat("replay ", half / mebibyte, " MiB"), "MB/s",
          {{"Quenor", [&] { return replay(options, half); }},
           {"floor: copying and a flush", [&] { return copy_images(options, half); }, at_least(0.5)}});
}

}  // namespace bench
