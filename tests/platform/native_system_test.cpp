// The system this test was built for, through real files: the same expectations on every system.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "observe.h"
#include "platform/platform.h"

namespace {

namespace fs = std::filesystem;
using platform::Sharing;
using support::bytes_of;
using support::text_of;

class NativeSystem : public testing::Test {
 protected:
  NativeSystem() { fs::create_directory(directory); }
  ~NativeSystem() override { fs::remove_all(directory); }

  std::string path(const std::string& name) const { return (directory / name).string(); }

  std::string make(const std::string& name, const std::string& contents) const {
    std::ofstream(directory / name, std::ios::binary) << contents;
    return path(name);
  }

  std::string contents(const std::string& name) const {
    std::ifstream file(directory / name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  platform::System& os = platform::system();
  const fs::path directory = fs::temp_directory_path() / ("quenor-" + std::to_string(std::random_device()()));
};

TEST_F(NativeSystem, CreationTakesNewNamesOnlyAndSharesNothing) {
  const std::string name = directory.string() + "\\new";  // a backslash separates directories, too
  {
    const auto made = os.create_new(name);
    ASSERT_TRUE(made.ok());
    EXPECT_FALSE(os.open(name, Sharing::none).ok());
    EXPECT_TRUE(made.value()->write_at(0, bytes_of("x")).ok());
    EXPECT_TRUE(made.value()->close().ok());
  }
  EXPECT_TRUE(os.sync_directory_of(name).ok());
  for (const std::string& taken : {path("new"), name, path("no-such-directory/new")})
    EXPECT_FALSE(os.create_new(taken).ok());
  EXPECT_EQ(contents("new"), "x");
  EXPECT_TRUE(os.remove(path("new")).ok() && !fs::exists(directory / "new"));
  EXPECT_FALSE(os.open(path("new"), Sharing::all).ok() || os.open_read_only(path("new")).ok());
  EXPECT_FALSE(fs::exists(directory / "new"));
}

TEST_F(NativeSystem, ReadsAndWritesGoWhereTheyAreTold) {
  const auto file = std::move(os.open(make("file", "0123456789"), Sharing::all).value());
  const auto read = [&](std::uint64_t position) {
    std::vector<std::byte> buffer(4);
    buffer.resize(file->read_at(position, buffer).value());
    return text_of(buffer);
  };
  EXPECT_EQ(read(8), "89");
  EXPECT_EQ(read(1'000'000), "");
  EXPECT_EQ(file->write_at(12, bytes_of("cd")).value(), 2u);
  EXPECT_TRUE(file->sync().ok());
  EXPECT_EQ(contents("file"), std::string("0123456789\0\0cd", 14));
  constexpr std::uint64_t far = (std::uint64_t{1} << 32) + 1;
  EXPECT_EQ(file->write_at(far, bytes_of("far")).value(), 3u);
  EXPECT_EQ(read(far), "far");
  EXPECT_EQ(read(1), "1234");
  EXPECT_FALSE(file->write_at(~std::uint64_t{0}, bytes_of("x")).ok());
  EXPECT_FALSE(file->has_fixed_size());
}

TEST_F(NativeSystem, AFileIsSharedAsItWasOpened) {
  const std::string name = make("file", "contents");
  for (const Sharing sharing : {Sharing::none, Sharing::readers, Sharing::all}) {
    const auto first = os.open(name, sharing);
    EXPECT_EQ(os.open(name, sharing).ok(), sharing == Sharing::all) << "both write";
  }
  const auto writer = os.open(name, Sharing::readers);
  const auto reader = os.open_read_only(name);
  ASSERT_TRUE(reader.ok()) << "beside a writer that allows readers";
  EXPECT_FALSE(reader.value()->write_at(0, bytes_of("x")).ok());
  EXPECT_FALSE(reader.value()->map(0, 100).ok());
  EXPECT_EQ(contents("file"), "contents");
  EXPECT_TRUE(writer.value()->close().ok());
  EXPECT_TRUE(os.open(name, Sharing::readers).ok()) << "beside a reader";
}

TEST_F(NativeSystem, AMappingOfAnyPartReachesTheFileWhichItLengthensIfNeedBe) {
  constexpr std::size_t offset = 70'001;  // beyond a granule of either system, aligned to nothing
  for (const std::size_t size : {200'000u, 10u}) {
    std::string expected(size, 'a');
    const auto file = std::move(os.open(make("file", expected), Sharing::all).value());
    const auto result = file->map(offset, 1'000);
    ASSERT_TRUE(result.ok());
    platform::Mapping& mapping = *result.value();
    expected.resize(std::max(size, offset + 1'000));
    EXPECT_EQ(text_of(mapping.bytes()), expected.substr(offset, 1'000));

    std::ranges::fill(mapping.bytes(), std::byte{'b'});
    EXPECT_TRUE(mapping.write(10, bytes_of("written")).ok());
    std::vector<std::byte> read(20);
    mapping.read(5, read);
    EXPECT_EQ(text_of(read), "bbbbbwrittenbbbbbbbb");
    EXPECT_TRUE(mapping.sync().ok());
    EXPECT_TRUE(mapping.unmap().ok());
    EXPECT_TRUE(mapping.bytes().empty());
    EXPECT_TRUE(mapping.close().ok());
    EXPECT_EQ(contents("file"),
              expected.replace(offset, 1'000, 1'000, 'b').replace(offset + 10, 7, "written"));
    EXPECT_FALSE(file->map(platform::max_position - 1, 100).ok());
  }
}

TEST_F(NativeSystem, AnswersWhatIsThereAndHowMuchRoomThereIs) {
  make("file", "x");
  EXPECT_TRUE(os.is_directory(directory.string() + "\\").value());
  EXPECT_FALSE(os.is_directory(path("file")).value());
  EXPECT_FALSE(os.is_directory(path("absent")).ok());
  const std::uint64_t free = os.free_bytes(directory.string() + "\\").value();
  EXPECT_GT(free, 0u);
  EXPECT_LE(free, fs::space(directory).capacity);
  const auto text = os.error_text(os.free_bytes(path("absent")).status().code);
  EXPECT_GE(text.value().size(), 5u);
  EXPECT_NE(text.value(), os.error_text(os.disk_full().code).value());
}

#if GTEST_HAS_DEATH_TEST && defined(SIGKILL)  // Windows interrupts through its console only
TEST(NativeSystemDeathTest, AnInterruptThatWasHeldEndsTheProcessWithItsLastWords) {
  const auto be_interrupted = [] {
    platform::system().end_on_interrupt("first\n");
    {
      const platform::InterruptsHeld held(platform::system());
      (void)std::raise(SIGTERM);
      platform::system().end_on_interrupt("last\n");
    }
    std::_Exit(1);
  };
  EXPECT_EXIT(be_interrupted(), testing::ExitedWithCode(128 + SIGTERM), "^last\n$");
}
#endif

TEST_F(NativeSystem, ClocksRunAndSetTheTimeOfAFile) {
  const std::uint64_t before = os.monotonic_microseconds();
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  const std::uint64_t elapsed = os.monotonic_microseconds() - before;
  EXPECT_TRUE(elapsed >= 15'000 && elapsed < 10'000'000) << elapsed;
  EXPECT_NEAR(static_cast<double>(os.calendar_seconds()), static_cast<double>(std::time(nullptr)), 2.0);

  const auto file = os.open(make("file", "x"), Sharing::all);
  const auto now = fs::file_time_type::clock::now();
  fs::last_write_time(directory / "file", now - std::chrono::hours(1));
  ASSERT_TRUE(file.value()->set_modification_time(os.file_time_now().value()).ok());
  EXPECT_LT(std::chrono::abs(fs::last_write_time(directory / "file") - now), std::chrono::minutes(1));
}

}  // namespace
