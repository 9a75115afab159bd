#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <cstring>
#include <ctime>

#include "calls.h"
#include "native.h"

namespace platform {
namespace {

constexpr std::uint64_t nanoseconds_per_second = 1'000'000'000;
constexpr std::size_t error_text_limit = 255;

// The directory that holds the file at a native path.
std::string directory_of(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos)
    return ".";
  return path.substr(0, slash + 1);
}

Status sync_directory(int descriptor) {
  if (uninterrupted([&] { return ::fsync(descriptor); }) == 0)
    return {};
  // Some file systems keep names durable by themselves and refuse the call.
  if (errno == EINVAL || errno == ENOTSUP)
    return {};
  return last_error();
}

// strerror_r comes in two shapes: one returns the text, the other an error number.
Result<std::string> text_of(const char* returned, const char*) {
  return std::string(returned);
}
[[maybe_unused]] Result<std::string> text_of(int failure, const char* buffer) {
  if (failure != 0)
    return Status{static_cast<std::uint32_t>(failure)};
  return std::string(buffer);
}

timespec now(clockid_t clock) {
  timespec time{};
  (void)::clock_gettime(clock, &time);  // cannot fail for the clocks that every system has
  return time;
}

constexpr std::array interrupts = {SIGINT, SIGTERM};
constexpr int status_of_signals = 128;

sigset_t interrupt_set() {
  sigset_t set;
  sigemptyset(&set);
  for (const int signal : interrupts)
    sigaddset(&set, signal);
  return set;
}

// What the handler says. It never returns, so the text that it reads is there until the process ends.
std::atomic<const std::string*> last_words_said;
static_assert(std::atomic<const std::string*>::is_always_lock_free, "a signal handler reads it");

// Calls nothing that a signal handler may not call.
extern "C" void end_with_last_words(int signal) {
  const std::string& words = *last_words_said.load();
  std::size_t said = 0;
  while (said < words.size()) {
    const ssize_t count = ::write(STDERR_FILENO, words.data() + said, words.size() - said);
    if (count <= 0)
      break;
    said += static_cast<std::size_t>(count);
  }
  ::_exit(status_of_signals + signal);
}

class PosixSystem final : public System {
 public:
  Result<std::unique_ptr<File>> open(const std::string& path, Sharing sharing) override {
    return open_file(path, O_RDWR, sharing);
  }

  // Does not wait for the other end of a pipe.
  Result<std::unique_ptr<File>> open_read_only(const std::string& path) override {
    return open_file(path, O_RDONLY | O_NONBLOCK, Sharing::all);
  }

  Result<std::unique_ptr<File>> create_new(const std::string& path) override {
    return open_file(path, O_RDWR | O_CREAT | O_EXCL, Sharing::none);
  }

  Status remove(const std::string& path) override { return outcome(::unlink(native_path(path).c_str())); }

  Status sync_directory_of(const std::string& path) override {
    const std::string directory = directory_of(native_path(path));
    const int descriptor =
        uninterrupted([&] { return ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); });
    if (descriptor < 0)
      return last_error();
    const Status synced = sync_directory(descriptor);
    const Status closed = outcome(::close(descriptor));
    return synced.ok() ? closed : synced;
  }

  Result<bool> is_directory(const std::string& path) override {
    struct stat found {};
    const std::string native = native_path(path);
    if (uninterrupted([&] { return ::stat(native.c_str(), &found); }) != 0)
      return last_error();
    return S_ISDIR(found.st_mode);
  }

  Result<std::uint64_t> free_bytes(const std::string& directory) override {
    struct statvfs found {};
    const std::string native = native_path(directory);
    if (uninterrupted([&] { return ::statvfs(native.c_str(), &found); }) != 0)
      return last_error();
    return std::uint64_t{found.f_bavail} * std::uint64_t{found.f_frsize};
  }

  Result<std::string> error_text(std::uint32_t code) override {
    std::array<char, error_text_limit + 1> buffer{};
    auto found = text_of(::strerror_r(static_cast<int>(code), buffer.data(), buffer.size()), buffer.data());
    if (found.ok())
      found.value().resize(std::min(found.value().size(), error_text_limit));
    return found;
  }

  Status disk_full() const override { return Status{ENOSPC}; }

  std::uint64_t monotonic_microseconds() override {
    const timespec time = now(CLOCK_MONOTONIC);
    return static_cast<std::uint64_t>(time.tv_sec) * 1'000'000 +
           static_cast<std::uint64_t>(time.tv_nsec) / 1'000;
  }

  std::int64_t calendar_seconds() override { return now(CLOCK_REALTIME).tv_sec; }

  Result<FileTime> file_time_now() override {
    timespec time{};
    if (::clock_gettime(CLOCK_REALTIME, &time) != 0)
      return last_error();
    return FileTime{static_cast<std::uint64_t>(time.tv_sec) * nanoseconds_per_second +
                    static_cast<std::uint64_t>(time.tv_nsec)};
  }

  bool is_terminal(Stream stream) override {
    static constexpr std::array descriptors = {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO};
    return ::isatty(descriptors[static_cast<std::size_t>(stream)]) == 1;
  }

  void ignore_write_signals() override {
    for (const int signal : {SIGXFSZ, SIGPIPE})
      (void)std::signal(signal, SIG_IGN);
  }

  void end_on_interrupt(const std::string& last_words) override {
    auto words = std::make_unique<const std::string>(last_words);
    last_words_said = words.get();
    last_words_ = std::move(words);
    struct sigaction action {};
    action.sa_handler = end_with_last_words;
    action.sa_mask = interrupt_set();
    for (const int signal : interrupts) {
      struct sigaction before {};
      (void)::sigaction(signal, nullptr, &before);  // cannot fail for these signals
      if (before.sa_handler != SIG_IGN)             // who started the process wants it to live on
        (void)::sigaction(signal, &action, nullptr);
    }
  }

  void hold_interrupts(bool hold) override {
    const sigset_t set = interrupt_set();
    (void)::sigprocmask(hold ? SIG_BLOCK : SIG_UNBLOCK, &set, nullptr);
  }

 private:
  std::unique_ptr<const std::string> last_words_;
};

}  // namespace

std::string native_path(std::string path) {
  std::replace(path.begin(), path.end(), '\\', '/');
  return path;
}

System& native_system() {
  // Never destroyed: a signal may come at any time, and its handler reads the words that the system keeps.
  static auto* const system = new PosixSystem;
  return *system;
}

}  // namespace platform
