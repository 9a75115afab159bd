#include "store_floor.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <span>
#include <utility>

#include "bare_file.h"
#include "common/crc32.h"
#include "metadb/storage/journal_format.h"
#include "quenor_store.h"

namespace bench {
namespace {

constexpr std::size_t written_out_at_once = std::size_t{1} << 20;
constexpr std::uint64_t new_store_blocks = first_data_block + 128;

class Floor {
 public:
  Floor(const StoreSettings& settings, const Trace& trace)
      : trace_(trace),
        journal_file_(settings.directory / "floor.odbj"),
        store_(settings.directory / "floor.odb"),
        images_(std::size_t{64} << 20),
        half_(settings.journal_bytes / 2),
        ranges_(trace.block_count(block_bytes)) {
    journal_file_.write_zeros(0, settings.journal_bytes, created_at_once);
    journal_file_.flush();
    store_.write_zeros(0, new_store_blocks * block_bytes, created_at_once);
    store_.flush();
    journal_ = journal_file_.map(settings.journal_bytes);
  }
  ~Floor() { ::munmap(journal_.data(), journal_.size()); }
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
    journal_file_.write(mdb::format::journal_header::pointers,
                        {image(position_), mdb::format::index_pointer::size});
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
    std::ranges::sort(changed_);
    for (const std::uint64_t block : changed_) {
      const Range range = std::exchange(ranges_[block], {});
      store_.write(block * block_bytes + range.start,
                   std::span<const std::byte>(journal_).subspan(range.source, range.end - range.start));
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
    Range& range = ranges_[block];
    if (range.end == 0)
      changed_.push_back(block);
    const std::size_t start = change.target % block_bytes;
    range.start = std::min(range.start, start);
    range.end = std::max(range.end, start + change.length);
    range.source = std::min(source, journal_.size() - block_bytes);
  }
  void end_transaction() {
    append(image(0), mdb::format::end_entry::size);
    const std::uint32_t sum = security::crc32(transaction_);
    std::memcpy(&transaction_[transaction_.size() - sizeof sum], &sum, sizeof sum);
    journal_file_.write(position_, transaction_);
    position_ += transaction_.size();
    transaction_.clear();
    if (position_ - written_out_ < written_out_at_once)
      return;
    journal_file_.start_flush(written_out_, position_ - written_out_);
    written_out_ = position_;
  }
  void make_room(std::uint64_t block) {
    if (block < store_blocks_)
      return;
    const std::uint64_t wanted = std::max(block + 1, store_blocks_ + store_blocks_ / 5);
    store_.write_zeros(store_blocks_ * block_bytes, wanted * block_bytes, block_bytes);
    store_blocks_ = wanted;
  }

  const Trace& trace_;
  BareFile journal_file_;
  BareFile store_;
  std::uint64_t store_blocks_ = new_store_blocks;
  std::vector<std::byte> images_;
  std::span<std::byte> journal_;
  std::size_t half_;
  std::size_t position_ = mdb::format::journal_header_size;
  std::size_t written_out_ = mdb::format::journal_header_size;
  std::vector<std::byte> transaction_;
  bool in_second_half_ = false;
  std::optional<Clock> last_sync_;  // the first transaction after an opening is due
  std::vector<Range> ranges_;       // by block
  std::vector<std::uint64_t> changed_;
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

Outcome overwrite_and_flush(const StoreSettings& settings, const Trace& trace, bool stamp) {
  const BareFile file(settings.directory / "floor");
  file.write_zeros(0, settings.journal_bytes, created_at_once);
  file.flush();
  const std::vector<std::byte> bytes(settings.journal_bytes, std::byte{1});
  std::uint64_t position = 0;
  return timed_operations(trace.operation_count(), 1, [&](std::size_t i) {
    std::uint64_t length = 0;
    trace.for_each_transaction(i, [&](std::span<const Change> changes) {
      length += mdb::format::begin_entry::size;
      for (const Change& change : changes)
        length += mdb::format::update_entry_size(change.length);
      length += mdb::format::end_entry::size;
    });
    if (position + length > settings.journal_bytes)
      position = 0;
    file.write(position, std::span(bytes).first(length));
    position += length;
    file.flush();
    if (stamp)
      file.stamp();
  });
}

}  // namespace bench
