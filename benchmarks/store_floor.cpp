#include "store_floor.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <optional>
#include <span>
#include <stdexcept>

#include "common/crc32.h"
#include "metadb/storage/journal_format.h"
#include "quenor_store.h"

namespace bench {
namespace {

// A file is created in pieces of this size, which the system then keeps its pages in.
constexpr std::size_t created_at_once = 4096;
constexpr std::size_t written_out_at_once = std::size_t{1} << 20;

void check(bool succeeded) {
  if (!succeeded)
    throw std::runtime_error("A call of the floor failed");
}

class File {
 public:
  explicit File(const std::filesystem::path& path, std::uint64_t size)
      : descriptor_(::open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600)) {
    check(descriptor_ >= 0);
    append_zeros(size, created_at_once);
    flush();
  }
  ~File() { ::close(descriptor_); }
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  int descriptor() const { return descriptor_; }
  void write(std::span<const std::byte> bytes, std::uint64_t position) const {
    check(::pwrite(descriptor_, bytes.data(), bytes.size(), static_cast<off_t>(position)) ==
          static_cast<ssize_t>(bytes.size()));
  }
  void grow_to(std::uint64_t size) { append_zeros(size, block_bytes); }
  void flush() const { check(::fsync(descriptor_) == 0); }
  void stamp() const { check(::futimens(descriptor_, nullptr) == 0); }
  void start_flush(std::uint64_t position, std::uint64_t length) const {
    check(::sync_file_range(descriptor_, static_cast<off_t>(position), static_cast<off_t>(length),
                            SYNC_FILE_RANGE_WRITE) == 0);
  }
  std::uint64_t size() const { return size_; }

 private:
  void append_zeros(std::uint64_t size, std::size_t at_once) {
    const std::vector<std::byte> zeros(at_once);
    for (; size_ < size; size_ += at_once)
      write(zeros, size_);
  }

  int descriptor_;
  std::uint64_t size_ = 0;
};

class Floor {
 public:
  Floor(const StoreSettings& settings, const Trace& trace)
      : trace_(trace),
        journal_file_(settings.directory / "floor.odbj", settings.journal_bytes),
        store_(settings.directory / "floor.odb", std::uint64_t{first_data_block + 128} * block_bytes),
        images_(std::size_t{64} << 20),
        half_(settings.journal_bytes / 2) {
    void* view =
        ::mmap(nullptr, settings.journal_bytes, PROT_READ, MAP_SHARED, journal_file_.descriptor(), 0);
    check(view != MAP_FAILED);
    journal_ = {static_cast<const std::byte*>(view), settings.journal_bytes};
  }
  ~Floor() { ::munmap(const_cast<std::byte*>(journal_.data()), journal_.size()); }
  Floor(const Floor&) = delete;
  Floor& operator=(const Floor&) = delete;

  void operation(std::size_t number) {
    trace_.for_each_transaction(number, [this](std::span<const Change> changes) {
      if (is_time_to_flip())
        flip();
      append(&journal_[position_], mdb::format::begin_entry::size);
      for (const Change& change : changes)
        append_update(change);
      end_transaction();
      sync_and_apply_when_due();
    });
  }
  void sync_journal() {
    journal_file_.flush();
    journal_file_.stamp();
  }

 private:
  // What the journal's entries since the last apply change within a block.
  struct Range {
    std::size_t start = block_bytes;
    std::size_t end = 0;
    std::size_t source = 0;  // in the journal
  };

  // The journal's own rule, whose product wraps.
  bool is_time_to_flip() const {
    const auto free = static_cast<std::uint32_t>((in_second_half_ ? 2 * half_ : half_) - position_);
    return free * 100U < half_ * 25;
  }
  void flip() {
    sync_journal();
    apply();
    store_.flush();
    in_second_half_ = !in_second_half_;
    written_out_ = position_ = in_second_half_ ? half_ : mdb::format::journal_header_size;
    journal_file_.write({image(position_), mdb::format::index_pointer::size},
                        mdb::format::journal_header::pointers);
    sync_journal();
  }
  void sync_and_apply_when_due() {
    if (last_sync_.has_value() && last_sync_->seconds() < 1)
      return;
    last_sync_.emplace();
    sync_journal();
    apply();
  }
  void apply() {
    std::size_t waiting = 0;
    for (const auto& [block, range] : changed_) {
      store_.write(journal_.subspan(range.source, range.end - range.start),
                   block * block_bytes + range.start);
      waiting += range.end - range.start;
      if (waiting < written_out_at_once)
        continue;
      store_.start_flush(0, 0);  // of the whole file
      waiting = 0;
    }
    changed_.clear();
  }
  const std::byte* image(std::uint64_t number) const {
    return &images_[scrambled(number) % (images_.size() / block_bytes) * block_bytes];
  }
  std::size_t append(const std::byte* bytes, std::size_t length) {
    transaction_.insert(transaction_.end(), bytes, bytes + length);
    return position_ + transaction_.size() - length;
  }
  void append_update(const Change& change) {
    const std::uint64_t block = change.target / block_bytes;
    const std::byte* const bytes = image(block);
    append(bytes, mdb::format::update_entry::data);
    const std::size_t source = append(bytes, change.length);
    // What follows the data up to the next entry is never written: what stands there stays.
    append(&journal_[position_ + transaction_.size()],
           mdb::format::update_entry_size(change.length) - mdb::format::update_entry::data - change.length);
    make_room(block);
    Range& range = changed_[block];
    const std::size_t start = change.target % block_bytes;
    range.start = std::min(range.start, start);
    range.end = std::max(range.end, start + change.length);
    range.source = std::min(source, journal_.size() - block_bytes);
  }
  void end_transaction() {
    append(image(0), mdb::format::end_entry::size);
    const std::uint32_t sum = security::crc32(transaction_);
    std::memcpy(&transaction_[transaction_.size() - sizeof sum], &sum, sizeof sum);
    journal_file_.write(transaction_, position_);
    position_ += transaction_.size();
    transaction_.clear();
    if (position_ - written_out_ < written_out_at_once)
      return;
    journal_file_.start_flush(written_out_, position_ - written_out_);
    written_out_ = position_;
  }
  void make_room(std::uint64_t block) {
    if (const std::uint64_t end = (block + 1) * block_bytes; end > store_.size())
      store_.grow_to(std::max(end, store_.size() + store_.size() / 5));
  }

  const Trace& trace_;
  File journal_file_;
  File store_;
  std::vector<std::byte> images_;
  std::span<const std::byte> journal_;
  std::size_t half_;
  std::size_t position_ = mdb::format::journal_header_size;
  std::size_t written_out_ = mdb::format::journal_header_size;
  std::vector<std::byte> transaction_;
  bool in_second_half_ = false;
  std::optional<Clock> last_sync_;          // the first transaction after an opening is due
  std::map<std::uint64_t, Range> changed_;  // by block
};

}  // namespace

Outcome operations_at_the_floor(const StoreSettings& settings, const Trace& trace, std::size_t untimed,
                                std::size_t timed) {
  Floor floor(settings, trace);
  for (std::size_t i = 0; i < untimed; ++i)
    floor.operation(i);
  floor.sync_journal();
  const Clock whole;
  Outcome outcome = timed_operations(timed, 1, [&](std::size_t i) { floor.operation(untimed + i); });
  floor.sync_journal();
  outcome.figure = static_cast<double>(timed) / whole.seconds() / 1000;
  return outcome;
}

Outcome overwrite_and_flush(const StoreSettings& settings, std::size_t node_count, bool stamp) {
  // One transaction: two headers in a data block, two leaves and a node with a text of 200 bytes.
  constexpr std::size_t journal_bytes_each =
      mdb::format::begin_entry::size + 2 * mdb::format::update_entry_size(4) +
      2 * mdb::format::update_entry_size(block_bytes) + mdb::format::update_entry_size(268) +
      mdb::format::end_entry::size;
  const File file(settings.directory / "floor", settings.journal_bytes);
  const std::vector<std::byte> bytes(journal_bytes_each, std::byte{1});
  return timed_operations(node_count, 1, [&](std::size_t i) {
    file.write(bytes, i * bytes.size() % (settings.journal_bytes - bytes.size()));
    file.flush();
    if (stamp)
      file.stamp();
  });
}

}  // namespace bench
