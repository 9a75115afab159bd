// The operating system, as far as the databases need it: files, mapped file ranges, directories,
// clocks and error texts. One small interface, implemented for POSIX and for Windows side by side
// (and once more by the tests, in memory). Nothing outside this library knows which one it talks to.
//
// No call here throws a database error. A failed call returns the system's code, saved before anything
// else could change it; the layer above turns it into its own exception and text.
//
// What survives:
//   - bytes written with File::write_at survive the death of the process at once, a power cut only
//     after File::sync has returned success;
//   - bytes stored in a Mapping survive the death of the process at once, a power cut only after
//     Mapping::sync and then File::sync have returned success;
//   - the name of a new file survives a power cut only after System::sync_directory_of.
//
// Paths are narrow strings. POSIX takes a backslash for a directory separator, like the slash, so that
// a path stored by either system means the same file on the other.

#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <utility>

namespace platform {

// Outcome of a call: 0 for success, else the system's error number (errno or GetLastError).
struct [[nodiscard]] Status {
  std::uint32_t code = 0;
  bool ok() const { return code == 0; }
};

// A value, or the code of the call that did not yield it.
template <typename T>
class [[nodiscard]] Result {
 public:
  Result(T value) : value_(std::move(value)) {}  // NOLINT(google-explicit-constructor)
  Result(Status failure) : status_(failure) {}   // NOLINT(google-explicit-constructor)

  bool ok() const { return status_.ok(); }
  Status status() const { return status_; }
  // REQUIRES: ok().
  T& value() { return value_; }
  const T& value() const { return value_; }

 private:
  T value_{};
  Status status_{};
};

// Byte positions above this cannot be handed to the system.
inline constexpr std::uint64_t max_position = 0x7FFF'FFFF'FFFF'FFFF;

// What other openers of an open file may do. On POSIX `all` takes no lock and the others an exclusive
// advisory lock; a file system without locks grants them.
enum class Sharing { none, readers, all };

enum class Stream { input, output, error };

// A moment in the form in which the system stamps files.
struct FileTime {
  std::uint64_t value = 0;
};

// A range of a file mapped for reading and writing. Closed by its destructor if still open; failures
// of that are not reported.
class Mapping {
 public:
  virtual ~Mapping() = default;

  // The mapped bytes, to be changed; empty after unmap().
  virtual std::span<std::byte> bytes() = 0;
  // The same, for looking at. Spares the next sync() what looking for changes in them would cost.
  virtual std::span<const std::byte> view();
  // Hands all changed bytes to the file. Only a File::sync after it makes them durable.
  virtual Status sync() = 0;
  // Copies `source` into bytes() from `offset` on, where it must fit. Where the system takes long to make a
  // page writable this goes past the view, which shows the bytes all the same.
  virtual Status write(std::size_t offset, std::span<const std::byte> source);
  // Copies the bytes of view() from `offset` on into `destination`. Where the first look at a page costs more
  // than a copy this goes past the view.
  virtual void read(std::size_t offset, std::span<std::byte> destination);
  // Removes the view; bytes() is empty afterwards.
  virtual Status unmap() = 0;
  // Releases the mapping object (a step of its own on Windows). REQUIRES: unmap() has been called.
  virtual Status close() = 0;
};

// An open file. Closed by its destructor if still open; failures of that are not reported.
class File {
 public:
  virtual ~File() = default;

  // Reads at most `buffer.size()` bytes at `position`; returns how many, 0 at or past the end.
  virtual Result<std::size_t> read_at(std::uint64_t position, std::span<std::byte> buffer) = 0;
  // Writes at most `bytes.size()` bytes at `position`; returns how many.
  virtual Result<std::size_t> write_at(std::uint64_t position, std::span<const std::byte> bytes) = 0;
  // Makes everything written so far durable.
  virtual Status sync() = 0;
  // Starts to hand what has been written to the disk, so that sync() has less to wait for. A hint: it
  // promises nothing, and cannot fail.
  virtual void start_sync();
  // Stamps the file, without making the stamp durable.
  virtual Status set_modification_time(FileTime time) = 0;
  // True for a device that cannot be lengthened; never on Windows.
  virtual bool has_fixed_size() const = 0;
  // Maps `length` bytes from `offset`, which need not be aligned. A regular file that is too short is
  // lengthened with zeros, never shortened. The code of a failure is an errno value on every system,
  // and errno is left at it. REQUIRES: length > 0.
  virtual Result<std::unique_ptr<Mapping>> map(std::uint64_t offset, std::uint32_t length) = 0;
  // Closes the file, once; the file is closed whatever the result.
  virtual Status close() = 0;
};

class System {
 public:
  virtual ~System() = default;

  // Opens an existing file for reading and writing at random positions.
  virtual Result<std::unique_ptr<File>> open(const std::string& path, Sharing sharing) = 0;
  // Opens an existing file for reading alone, beside any other opener that allows readers: takes no lock, and
  // leaves others everything. What would change the file's bytes fails.
  virtual Result<std::unique_ptr<File>> open_read_only(const std::string& path) = 0;
  // Creates a file for reading and writing; an existing file is a failure.
  virtual Result<std::unique_ptr<File>> create_new(const std::string& path) = 0;
  // Removes a file's name, not durably. REQUIRES: this process has closed the file, which some systems would
  // not remove otherwise.
  virtual Status remove(const std::string& path) = 0;
  // Makes the name of the file at `path` durable; success where the system has no such step.
  virtual Status sync_directory_of(const std::string& path) = 0;

  // Whether `path`, links followed, is a directory; a failure when it cannot be queried.
  virtual Result<bool> is_directory(const std::string& path) = 0;
  // Bytes of the disk that holds `directory` that this user may still take.
  virtual Result<std::uint64_t> free_bytes(const std::string& directory) = 0;

  // The system's message for an error code, 255 bytes at most, trailing line ends included.
  virtual Result<std::string> error_text(std::uint32_t code) = 0;
  // The code that stands for a full disk.
  virtual Status disk_full() const = 0;

  // Microseconds of a clock that never steps back; its zero means nothing.
  virtual std::uint64_t monotonic_microseconds() = 0;
  // Seconds since 1970-01-01 UTC.
  virtual std::int64_t calendar_seconds() = 0;
  // The moment as a stamp for files.
  virtual Result<FileTime> file_time_now() = 0;

  // Whether somebody may sit at the other end of the stream.
  virtual bool is_terminal(Stream stream) = 0;
  // Lets writes past a limit or into a closed pipe fail with an error code instead of ending the process.
  virtual void ignore_write_signals() = 0;

  // From now on an interrupt ends the process at once, without destructors: `last_words` go to standard error
  // as they stand, and the status is 128 plus the number of the signal (2 for Ctrl-C, 15 for a request to
  // end; on Windows 21 for Ctrl-Break and 15 when the console or the session is closed). A later call
  // replaces the words.
  virtual void end_on_interrupt(const std::string& last_words) = 0;
  // Lets interrupts wait, or take place again. REQUIRES: true and false in turn, true first.
  virtual void hold_interrupts(bool hold) = 0;
};

// Lets interrupts wait for as long as it lives, so that the last words can follow what is done meanwhile.
class InterruptsHeld {
 public:
  // From now on they wait; the system must live as long.
  explicit InterruptsHeld(System& system) : system_(system) { system_.hold_interrupts(true); }
  ~InterruptsHeld() { system_.hold_interrupts(false); }
  InterruptsHeld(const InterruptsHeld&) = delete;
  InterruptsHeld& operator=(const InterruptsHeld&) = delete;

 private:
  System& system_;
};

// The system that the libraries use: the native one unless replaced.
System& system();

// Makes the libraries use `replacement` (not owned; null for the native one) and returns what they used
// before. For tests; to be called while no database is open.
System* replace_system(System* replacement);

}  // namespace platform
