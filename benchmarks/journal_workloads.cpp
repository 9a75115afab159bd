// What the journal costs those who do not store: a cache miss, an opening, a replay.

#include <algorithm>
#include <cstring>
#include <span>
#include <stdexcept>

#include "bare_file.h"
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

// Where the update of that number goes: anywhere in the blocks that are free but for the last one.
std::uint64_t random_target(std::uint64_t number, std::size_t length) {
  constexpr std::uint64_t first = first_data_block + 2;
  const std::uint64_t block = first + scrambled(number) % (block_count - 1 - first);
  return block * block_bytes + scrambled(~number) % (block_bytes - length + 1);
}

std::uint64_t missed_block(std::uint64_t number) {
  return first_data_block + scrambled(~number) % (block_count - first_data_block);
}

// One transaction that leaves hardly any room in the half, of updates of that many bytes.
std::uint64_t fill_half(std::size_t length) {
  const auto data = std::span(image).first(length);
  std::uint64_t count = 0;
  mdb::Transaction transaction;
  for (; mdb::journal_free() >= 2 * mdb::format::update_entry_size(block_bytes); ++count)
    mdb::transaction_update(data, random_target(count, length));
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

void require_unapplied(std::size_t length) {
  std::vector<std::byte> stored(length);
  mdb::byte_read(stored, random_target(0, length));
  if (stored[0] == image[0])
    throw std::runtime_error("The half was applied meanwhile");
}

// With a half that is full of updates of that many bytes, or empty.
Outcome misses(const Options& options, std::uint64_t half_bytes, std::size_t update_bytes) {
  constexpr std::uint64_t cached_blocks = 64;
  open_grown(options, 2 * half_bytes, cached_blocks * block_bytes);
  begin_second();
  if (update_bytes != 0) {
    fill_half(update_bytes);
    require_unapplied(update_bytes);
  }
  std::byte sum{};
  Outcome outcome = timed_operations(options.sized(50'000, 1'000), 1, [&](std::size_t i) {
    sum ^= mdb::cache_get_block(static_cast<std::uint32_t>(missed_block(i)))[0];
  });
  outcome.figure = 1000 / outcome.figure;
  close_database();
  return outcome;
}

Outcome open_store(const StoreSettings& settings) {
  const Clock clock;
  open_database(settings);
  const double seconds = clock.seconds();
  close_database();
  return {seconds * 1000, {}};
}

Outcome read_map(const StoreSettings& settings) {
  const Clock clock;
  const BareFile file(settings.directory / "main.odb");
  std::vector<std::byte> block(block_bytes);
  for (std::uint32_t i = 1; i <= map_blocks; ++i)
    file.read(std::uint64_t{i} * block_bytes, block);
  return {clock.seconds() * 1000, {}};
}

// A miss at the floor: reads the block and copies its updates out of the journal, whose places are known.
Outcome bare_misses(const Options& options, std::uint64_t half_bytes, std::size_t update_bytes) {
  const std::filesystem::path directory = fresh_directory(options, "journal");
  const BareFile store(directory / "store");
  store.write_zeros(0, std::uint64_t{block_count} * block_bytes, block_bytes);
  const BareFile journal(directory / "journal");
  journal.write_zeros(0, half_bytes, block_bytes);
  const std::span<std::byte> entries = journal.map(half_bytes);
  std::ranges::fill(entries, image[0]);  // every page of the view has been touched

  struct Update {
    std::uint32_t start;
    std::uint32_t position;
  };
  std::vector<std::vector<Update>> updates(block_count);
  std::uint32_t position = 0;
  for (std::uint64_t i = 0; position + mdb::format::update_entry_size(update_bytes) <= half_bytes; ++i) {
    const std::uint64_t target = random_target(i, update_bytes);
    updates[target / block_bytes].push_back({static_cast<std::uint32_t>(target % block_bytes), position});
    position += static_cast<std::uint32_t>(mdb::format::update_entry_size(update_bytes));
  }

  std::vector<std::byte> cache(64 * block_bytes);
  Outcome outcome = timed_operations(options.sized(50'000, 1'000), 1, [&](std::size_t i) {
    const std::uint64_t block = missed_block(i);
    const auto buffer = std::span(cache).subspan(i % 64 * block_bytes, block_bytes);
    store.read(block * block_bytes, buffer);
    for (const Update& update : updates[block])
      std::memcpy(&buffer[update.start], &entries[update.position], update_bytes);
  });
  outcome.figure = 1000 / outcome.figure;
  ::munmap(entries.data(), entries.size());
  return outcome;
}

double rate(std::uint64_t blocks, double seconds) {
  return static_cast<double>(blocks) * block_bytes / seconds / 1e6;
}

Outcome replay(const Options& options, std::uint64_t half_bytes) {
  open_grown(options, 2 * half_bytes, 64 * mebibyte);
  const std::uint64_t blocks = fill_half(block_bytes);
  mdb::journal_sync();
  mdb::mdb_close();
  const Clock clock;
  mdb::mdb_open(options.directory / "journal" / "main.odb");
  const double seconds = clock.seconds();
  close_database();
  return {rate(blocks, seconds), {}};
}

Outcome copy_images(const Options& options, std::uint64_t half_bytes) {
  const BareFile file(fresh_directory(options, "journal") / "copy");
  for (std::uint64_t block = 0; block < block_count; ++block)
    file.write(block * block_bytes, image);
  file.flush();
  const std::uint64_t blocks = half_bytes / (block_bytes + 24);
  const Clock clock;
  for (std::uint64_t i = 0; i < blocks; ++i)
    file.write(scrambled(i) % block_count * block_bytes, image);
  file.flush();
  return {rate(blocks, clock.seconds()), {}};
}

}  // namespace

void run_miss(const Options& options) {
  for (const std::uint64_t half : {4 * mebibyte, 64 * mebibyte}) {
    for (const std::size_t update : {std::size_t{block_bytes}, std::size_t{256}, std::size_t{4}}) {
      contest(options,
              text::concat("miss, half of ", half / mebibyte, " MiB full of updates of ", update, " B"), "µs",
              {{"full", [&] { return misses(options, half, update); }},
               {"the half empty", [&] { return misses(options, half, 0); }, at_most(1.2)},
               {"floor: reading the block and its updates",
                [&] { return bare_misses(options, half, update); }, at_most(1.25)}});
    }
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
