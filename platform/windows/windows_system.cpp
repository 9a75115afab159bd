#include <io.h>

#include <array>
#include <chrono>
#include <csignal>
#include <ctime>
#include <mutex>
#include <utility>

#include "calls.h"
#include "native.h"

extern "C" {
// Read by the C runtime before the entry point: a program gets its arguments as they were given, and a
// "*" in one of them is not replaced by file names. Stands here because every program links this file.
extern int _dowildcard;
int _dowildcard = 0;
}

namespace platform {
namespace {

constexpr std::size_t error_text_limit = 255;

// What Sharing leaves to other openers, in the order of its values.
constexpr std::array<DWORD, 3> share_modes = {no_sharing, FILE_SHARE_READ,
                                              FILE_SHARE_READ | FILE_SHARE_WRITE};
constexpr DWORD full_sharing = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
constexpr DWORD read_write = GENERIC_READ | GENERIC_WRITE;

// The console's events and the signals that they stand for.
constexpr int signal_of(DWORD event) {
  switch (event) {
    case CTRL_C_EVENT:
      return SIGINT;
    case CTRL_BREAK_EVENT:
      return SIGBREAK;
    default:  // the console is closed, the user logs off, the computer is shut down
      return SIGTERM;
  }
}

constexpr UINT status_of_signals = 128;

std::string last_words_said;
// Held by whoever changes the words, and by an interrupt for ever.
std::recursive_mutex interrupt_lock;

// Runs in a thread of its own.
BOOL WINAPI end_with_last_words(DWORD event) {
  interrupt_lock.lock();
  DWORD written = 0;
  (void)::WriteFile(::GetStdHandle(STD_ERROR_HANDLE), last_words_said.data(),
                    static_cast<DWORD>(last_words_said.size()), &written, nullptr);
  // Not ExitProcess, which would wait for what the other thread holds.
  (void)::TerminateProcess(::GetCurrentProcess(), status_of_signals + static_cast<UINT>(signal_of(event)));
  return TRUE;
}

class WindowsSystem final : public System {
 public:
  Result<std::unique_ptr<File>> open(const std::string& path, Sharing sharing) override {
    return open_file(path, read_write, share_modes[static_cast<std::size_t>(sharing)], OPEN_EXISTING);
  }

  Result<std::unique_ptr<File>> open_read_only(const std::string& path) override {
    return open_file(path, GENERIC_READ, full_sharing, OPEN_EXISTING);
  }

  Result<std::unique_ptr<File>> create_new(const std::string& path) override {
    return open_file(path, read_write, no_sharing, CREATE_NEW);
  }

  Status remove(const std::string& path) override { return outcome(::DeleteFileA(path.c_str())); }

  // The file system keeps names durable in its own journal.
  Status sync_directory_of(const std::string&) override { return {}; }

  Result<bool> is_directory(const std::string& path) override {
    WIN32_FILE_ATTRIBUTE_DATA found{};
    if (::GetFileAttributesExA(path.c_str(), GetFileExInfoStandard, &found) == FALSE)
      return last_error();
    return (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
  }

  Result<std::uint64_t> free_bytes(const std::string& directory) override {
    ULARGE_INTEGER available_to_caller{};
    if (::GetDiskFreeSpaceExA(directory.c_str(), &available_to_caller, nullptr, nullptr) == FALSE) {
      return last_error();
    }
    return std::uint64_t{available_to_caller.QuadPart};
  }

  Result<std::string> error_text(std::uint32_t code) override {
    std::array<char, error_text_limit + 1> buffer{};
    const DWORD length = ::FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
                                          code, 0, buffer.data(), static_cast<DWORD>(buffer.size()), nullptr);
    if (length == 0)
      return last_error();
    return std::string(buffer.data(), length);
  }

  Status disk_full() const override { return Status{ERROR_DISK_FULL}; }

  std::uint64_t monotonic_microseconds() override {
    const auto since_start = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<std::uint64_t>(
        std::chrono::duration_cast<std::chrono::microseconds>(since_start).count());
  }

  std::int64_t calendar_seconds() override { return std::time(nullptr); }

  Result<FileTime> file_time_now() override {
    SYSTEMTIME now{};
    FILETIME stamp{};
    ::GetSystemTime(&now);
    if (::SystemTimeToFileTime(&now, &stamp) == FALSE)
      return last_error();
    return FileTime{std::uint64_t{stamp.dwHighDateTime} << 32 | stamp.dwLowDateTime};
  }

  bool is_terminal(Stream stream) override {
    // The C runtime numbers its descriptors in the order of Stream's values.
    return ::_isatty(static_cast<int>(stream)) != 0;
  }

  // Writes fail with an error code here anyway.
  void ignore_write_signals() override {}

  void end_on_interrupt(const std::string& last_words) override {
    const std::scoped_lock lock(interrupt_lock);
    last_words_said = last_words;
    if (!std::exchange(handler_is_set_, true))
      (void)::SetConsoleCtrlHandler(end_with_last_words, TRUE);  // fails for a full table only
  }

  void hold_interrupts(bool hold) override { hold ? interrupt_lock.lock() : interrupt_lock.unlock(); }

 private:
  bool handler_is_set_ = false;
};

}  // namespace

System& native_system() {
  static WindowsSystem system;
  return system;
}

}  // namespace platform
