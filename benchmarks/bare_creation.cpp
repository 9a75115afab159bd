// Makes files as large as those of a new database pair with the writes and flushes that go with them, and
// puts nothing into them: bare-creation DIRECTORY CHECKS

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <string>

namespace {

constexpr off_t page = 4096;
constexpr off_t block = 8192;
constexpr off_t mdb_blocks = 385;
constexpr off_t map_blocks = 256;
constexpr off_t journal_bytes = 8 << 20;
constexpr int chain_sets = 3;

std::array<char, block> buffer{};

void check(bool succeeded) {
  if (!succeeded)
    std::exit(1);
}
int open_file(const std::string& path, int flags = 0) {
  const int file = ::open(path.c_str(), O_RDWR | O_CLOEXEC | flags, 0600);
  check(file >= 0);
  return file;
}
void write_at(int file, off_t position, off_t length) {
  check(::pwrite(file, buffer.data(), static_cast<std::size_t>(length), position) == length);
}
void write_zeros(int file, off_t end, off_t step) {
  for (off_t position = 0; position < end; position += step)
    write_at(file, position, step);
}
void flush(int file) {
  check(::fsync(file) == 0);
}

class Directory {
 public:
  explicit Directory(std::string path) : path_(std::move(path)) {}

  // A new file of zeros, whose name is made durable.
  void make(const char* name, off_t size) const {
    const int file = open_file(path_ + '/' + name, O_CREAT | O_EXCL);
    write_zeros(file, size, page);
    ::close(file);
    const int directory = ::open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    flush(directory);
    ::close(directory);
  }
  int open(const char* name) const { return open_file(path_ + '/' + name); }

 private:
  std::string path_;
};

class Journal {
 public:
  Journal(int file, std::size_t mapped) : file_(file), mapped_(mapped) {
    view_ = static_cast<char*>(::mmap(nullptr, mapped_, PROT_READ | PROT_WRITE, MAP_SHARED, file_, 0));
    check(view_ != MAP_FAILED);
  }
  void put(std::size_t position, std::size_t length) {
    for (std::size_t i = 0; i < length; ++i)
      view_[position + i] = static_cast<char>(i);
  }
  void sync() {
    check(::msync(view_, mapped_, MS_SYNC) == 0);
    flush(file_);
    check(::futimens(file_, nullptr) == 0);
  }
  void close() {
    sync();
    ::munmap(view_, mapped_);
    ::close(file_);
  }

 private:
  int file_;
  std::size_t mapped_;
  char* view_;
};

void make_tsdb(const Directory& directory, int checks) {
  directory.make("main.tsdb", 0);
  const int file = directory.open("main.tsdb");
  const off_t blocks = off_t{checks} * 128;
  write_zeros(file, (blocks + 31) / 32 * 32 * block, block);
  const int chain_blocks = 4 + (checks > 511 ? 1 : 0);
  write_zeros(file, (1 + chain_sets * chain_blocks) * block, block);
  flush(file);
}

}  // namespace

int main(int argc, char** argv) {
  check(argc == 3);
  const Directory directory(argv[1]);

  directory.make("main.odb", mdb_blocks * block);
  int mdb = directory.open("main.odb");
  write_at(mdb, 0, 1024);
  directory.make("main.odbj", journal_bytes);
  Journal header(directory.open("main.odbj"), 1024);
  header.put(0, 48);
  header.sync();
  make_tsdb(directory, std::atoi(argv[2]));
  header.close();
  flush(mdb);
  ::close(mdb);

  // Opened again, for the default content: the roots of two indexes, ten records in as many transactions.
  mdb = directory.open("main.odb");
  Journal journal(directory.open("main.odbj"), journal_bytes);
  journal.sync();
  flush(mdb);
  journal.put(16, 16);
  journal.sync();
  for (off_t i = 0; i < map_blocks; ++i)
    check(::pread(mdb, buffer.data(), block, (1 + i) * block) == block);
  journal.sync();
  journal.put(48, 20 * (block + 24));
  journal.close();
  flush(mdb);
  ::close(mdb);
  return 0;
}
