#include "store_floor.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <span>
#include <stdexcept>

#include "common/crc32.h"
#include "metadb/storage/journal_format.h"
#include "quenor_store.h"

namespace bench {
namespace {

constexpr std::size_t object_bytes = 268;  // a node with a text of 200 bytes
constexpr std::size_t nodes_in_leaf = 340;
constexpr std::size_t nodes_in_block = block_bytes / object_bytes;
constexpr std::size_t space_transaction = 16 + 24 + 24 + 8;  // begin, two headers, end
constexpr std::size_t node_transaction_rest = 16 + 8;
constexpr std::size_t freed_header = 24;
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
  Floor(const StoreSettings& settings, std::size_t node_count)
      : journal_file_(settings.directory / "floor.odbj", settings.journal_bytes),
        store_(settings.directory / "floor.odb", std::uint64_t{first_data_block + 128} * block_bytes),
        images_(std::size_t{64} << 20),
        half_(settings.journal_bytes / 2),
        node_count_(node_count) {
    void* view =
        ::mmap(nullptr, settings.journal_bytes, PROT_READ, MAP_SHARED, journal_file_.descriptor(), 0);
    check(view != MAP_FAILED);
    journal_ = {static_cast<const std::byte*>(view), settings.journal_bytes};
  }
  ~Floor() { ::munmap(const_cast<std::byte*>(journal_.data()), journal_.size()); }
  Floor(const Floor&) = delete;
  Floor& operator=(const Floor&) = delete;

  void store(std::size_t number) {
    take_space(number);
    change_leaf(0, scrambled(number), number);
    change_leaf(1, scrambled(number / 20), number);
    change_object(number);
    append(image(number), node_transaction_rest);
    end_transaction();
  }

  // An object that no longer fits moves to the end: `place` is any number below those stored, `number` one
  // more than the last.
  void move(std::size_t place, std::size_t number) {
    take_space(number);
    change_leaf(0, scrambled(place), node_count_);
    change_leaf(1, scrambled(place / 20), node_count_);
    change_object(number);
    append(image(place), freed_header);
    changed_[make_room(first_object_block() + place / nodes_in_block) * block_bytes] = {block_bytes, 0};
    append(image(number), node_transaction_rest);
    end_transaction();
  }

  void flip() {
    sync_journal();
    for (const auto& [position, length_and_source] : changed_)
      store_.write(journal_.subspan(length_and_source.second, length_and_source.first), position);
    changed_.clear();
    store_.flush();
    in_second_half_ = !in_second_half_;
    written_out_ = position_ = in_second_half_ ? half_ : 48;
    journal_file_.write({image(position_), 16}, 16);
    sync_journal();
  }

 private:
  void take_space(std::size_t number) {
    if (is_time_to_flip())
      flip();
    append(image(number), space_transaction);
    end_transaction();
  }
  // The journal's own rule, whose product wraps.
  bool is_time_to_flip() const {
    const auto free = static_cast<std::uint32_t>((in_second_half_ ? 2 * half_ : half_) - position_);
    return free * 100U < half_ * 25;
  }
  const std::byte* image(std::uint64_t number) const {
    return &images_[scrambled(number) % (images_.size() / block_bytes) * block_bytes];
  }
  std::size_t append(const std::byte* bytes, std::size_t length) {
    transaction_.insert(transaction_.end(), bytes, bytes + length);
    return position_ + transaction_.size() - length;
  }
  void end_transaction() {
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
  void change_leaf(std::uint64_t index, std::uint64_t place, std::size_t number) {
    const std::uint64_t leaf = place % (1 + number / nodes_in_leaf);
    change_block(2 + 2 * leaf + index, place);
  }
  void change_block(std::uint64_t block, std::uint64_t place) {
    append(image(place), mdb::format::update_entry::data);
    const std::size_t source = append(image(place + 1), block_bytes);
    append(image(place), 4);  // an entry ends at a multiple of 8
    changed_[make_room(block) * block_bytes] = {block_bytes, source};
  }
  void change_object(std::size_t number) {
    append(image(number), mdb::format::update_entry::data);
    const std::size_t source = append(image(number + 1), object_bytes);
    const std::uint64_t block = make_room(first_object_block() + number / nodes_in_block) * block_bytes;
    const std::size_t place = number % nodes_in_block;
    // One write of all that lies side by side.
    const auto before = changed_.find(block);
    const std::size_t length = place == 0 || before == changed_.end() ? 0 : before->second.first;
    changed_[block] = {length + object_bytes, std::min(source, journal_.size() - block_bytes)};
  }
  std::uint64_t first_object_block() const { return 4 + 2 * node_count_ / nodes_in_leaf; }
  std::uint64_t make_room(std::uint64_t block) {
    block += first_data_block;
    if (const std::uint64_t end = (block + 1) * block_bytes; end > store_.size())
      store_.grow_to(std::max(end, store_.size() + store_.size() / 5));
    return block;
  }
  void sync_journal() {
    journal_file_.flush();
    journal_file_.stamp();
  }

  File journal_file_;
  File store_;
  std::vector<std::byte> images_;
  std::span<const std::byte> journal_;
  std::size_t half_;
  std::size_t node_count_;
  std::size_t position_ = 48;
  std::size_t written_out_ = 48;
  std::vector<std::byte> transaction_;
  bool in_second_half_ = false;
  // By the position in the file: how many bytes, and where in the journal.
  std::map<std::uint64_t, std::pair<std::size_t, std::size_t>> changed_;
};

}  // namespace

Outcome store_at_the_floor(const StoreSettings& settings, std::size_t node_count) {
  Floor floor(settings, node_count);
  Outcome outcome = timed_operations(node_count, 1, [&](std::size_t i) { floor.store(i); });
  return outcome;
}

Outcome move_at_the_floor(const StoreSettings& settings, std::size_t node_count, std::size_t moves) {
  Floor floor(settings, node_count);
  for (std::size_t i = 0; i < node_count; ++i)
    floor.store(i);
  return timed_operations(moves, 1,
                          [&](std::size_t i) { floor.move(scrambled(i) % node_count, node_count + i); });
}

Outcome overwrite_and_flush(const StoreSettings& settings, std::size_t node_count, bool stamp) {
  constexpr std::size_t journal_bytes_each = 2 * (block_bytes + 24) + object_bytes + 20 + 24;
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
