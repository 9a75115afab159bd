// Makes files as large as those of a new database pair with the writes and flushes that go with them, and
// puts nothing into them: bare-creation DIRECTORY CHECKS

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <initializer_list>

#include "bare_file.h"

namespace {

using bench::BareFile;

constexpr std::size_t block_bytes = 8192;
constexpr std::uint64_t mdb_blocks = 385;
constexpr std::size_t mdb_header_bytes = 1024;
constexpr std::uint64_t journal_bytes = std::uint64_t{8} << 20;
constexpr std::size_t journal_header_bytes = 48;
constexpr std::uint64_t blocks_of_a_check = 128;
constexpr std::uint64_t blocks_of_a_map_entry = 32;
constexpr std::size_t header_and_chains = 13;
constexpr std::size_t chains_of_a_set = 4;
constexpr std::size_t check_chain = 3;  // of each set; it alone has room for all checks from the start
constexpr int checks_in_a_block = 511;

const std::vector<std::byte> some_bytes(65'536, std::byte{1});

void write_some(const BareFile& file, std::uint64_t position, std::size_t length) {
  file.write(position, std::span(some_bytes).first(length));
}
void write_blocks(const BareFile& file, std::initializer_list<std::uint64_t> blocks) {
  for (const std::uint64_t block : blocks)
    write_some(file, block * block_bytes, block_bytes);
}

// A new file of zeros, whose name is made durable.
void make(const std::filesystem::path& path, std::uint64_t size) {
  BareFile(path, O_EXCL).write_zeros(0, size, bench::created_at_once);
  const int directory = ::open(path.parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  bench::require(directory >= 0 && ::fsync(directory) == 0);
  ::close(directory);
}

void sync_journal(const BareFile& journal) {
  journal.flush();
  journal.stamp();
}

// The view of a journal is synced once, whether or not it is changed.
void sync_view(const BareFile& journal, std::span<std::byte> view) {
  bench::require(::msync(view.data(), view.size(), MS_SYNC) == 0);
  sync_journal(journal);
}

std::size_t check_chain_bytes(int checks) {
  return (checks > checks_in_a_block ? 2 : 1) * block_bytes;
}

void make_tsdb(const BareFile& file, int checks) {
  const std::uint64_t blocks = static_cast<std::uint64_t>(checks) * blocks_of_a_check;
  const std::uint64_t capacity =
      (blocks + blocks_of_a_map_entry - 1) / blocks_of_a_map_entry * blocks_of_a_map_entry;
  file.write_zeros(0, capacity * block_bytes, block_bytes);
  std::uint64_t position = 0;
  for (std::size_t i = 0; i < header_and_chains; ++i) {
    const std::size_t length = i % chains_of_a_set == check_chain ? check_chain_bytes(checks) : block_bytes;
    write_some(file, position, length);
    position += length;
  }
  write_blocks(file, {0});
  file.flush();
}

void make_files(const std::filesystem::path& directory, int checks) {
  make(directory / "main.odb", mdb_blocks * block_bytes);
  const BareFile mdb(directory / "main.odb");
  write_some(mdb, 0, mdb_header_bytes);
  make(directory / "main.odbj", journal_bytes);
  const BareFile journal(directory / "main.odbj");
  const std::span<std::byte> view = journal.map(mdb_header_bytes);
  std::fill_n(view.begin(), journal_header_bytes, std::byte{1});
  sync_view(journal, view);
  make(directory / "main.tsdb", 0);
  make_tsdb(BareFile(directory / "main.tsdb"), checks);
  sync_journal(journal);
  ::munmap(view.data(), view.size());
  mdb.flush();
}

// The two roots of the indexes and three records, in as many transactions as that takes, and a time series.
void write_content(const std::filesystem::path& directory, int checks) {
  const BareFile mdb(directory / "main.odb");
  const BareFile journal(directory / "main.odbj");
  const BareFile tsdb(directory / "main.tsdb");
  const std::span<std::byte> view = journal.map(journal_bytes);
  sync_view(journal, view);
  mdb.flush();
  write_some(journal, 0, journal_header_bytes);
  sync_journal(journal);
  sync_journal(journal);

  std::uint64_t position = journal_header_bytes;
  const auto append = [&](std::initializer_list<std::size_t> transactions) {
    for (const std::size_t length : transactions) {
      write_some(journal, position, length);
      position += length;
    }
  };
  append({8264, 8264, 72, 72, 32'976, 72, 41'352});
  write_some(tsdb, check_chain * block_bytes, check_chain_bytes(checks));
  write_blocks(tsdb, {1, 2, 4});
  tsdb.flush();
  write_blocks(tsdb, {0});
  tsdb.flush();
  write_blocks(tsdb, {0, 0});
  tsdb.flush();
  write_blocks(tsdb, {0});
  tsdb.flush();
  append({72, 16'896});
  sync_journal(journal);
  ::munmap(view.data(), view.size());
  mdb.flush();
}

}  // namespace

int main(int argc, char** argv) {
  bench::require(argc == 3);
  const int checks = std::atoi(argv[2]);
  make_files(argv[1], checks);
  write_content(argv[1], checks);
  return 0;
}
