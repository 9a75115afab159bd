#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <exception>
#include <functional>
#include <iostream>
#include <sstream>

#include "common/errors.h"
#include "common/log.h"
#include "observe.h"

namespace {

// What a program prints that catches the four types in this order.
std::string printed(const std::function<void()>& thrower) {
  try {
    thrower();
  } catch (const tsdb::error_io& e) {
    return "TSDB I/O error: " + e.full_text();
  } catch (const mdb::error_io& e) {
    return "MDB I/O error: " + e.full_text();
  } catch (const tsdb::error_generic& e) {
    return "TSDB Error: " + e.full_text();
  } catch (const mdb::error_generic& e) {
    return "MDB Error: " + e.full_text();
  }
  return "";
}

template <typename... Errors>
void expect_printed(const std::string& expected) {
  for (const auto& thrower : {+[] { throw Errors("text"); }...})
    EXPECT_EQ(printed(thrower), expected);
}

template <typename Base, typename... Derived>
constexpr bool all_derive_from = (std::is_base_of_v<Base, Derived> && ...);

TEST(Errors, AreCaughtByTheirFamilies) {
  expect_printed<tsdb::error_open, tsdb::error_read, tsdb::error_seek, tsdb::error_toobig>(
      "TSDB I/O error: text");
  expect_printed<tsdb::error_internal, tsdb::error_consistency, tsdb::error_dbnospace,
                 tsdb::error_dbspacewrap>("TSDB Error: text");
  expect_printed<mdb::error_open, mdb::error_seek>("MDB I/O error: text");
  expect_printed<mdb::error_fubar, mdb::error_range, mdb::error_bigobj, mdb::error_transact>(
      "MDB Error: text");
  static_assert(
      all_derive_from<tsdb::error_internal, tsdb::error_dbtype, tsdb::error_dcalloc, tsdb::error_unref_used>);
  static_assert(all_derive_from<mdb::error_internal, mdb::error_range>);
  static_assert(all_derive_from<mdb::error_consistency, mdb::error_fubar, mdb::error_need_repair,
                                mdb::error_unsupported>);
  static_assert(all_derive_from<error::Exception, tsdb::error_generic, mdb::error_generic>);
  static_assert(!std::is_base_of_v<std::exception, error::Exception>);

  mdb::error_fubar error("description");
  error.context = ", context";
  const mdb::error_fubar copy = error;
  EXPECT_EQ(printed([&] { throw mdb::error_fubar(copy); }), "MDB Error: description, context");
}

using support::LogCapture;

TEST(Log, ShowsWhatTheMaskOfEachLibraryLetsThrough) {
  const LogCapture capture;
  mdb::log(logging::detail, logging::space, "hidden");
  tsdb::log(logging::detail, logging::chains, "hidden");
  mdb::log(logging::information, logging::journal, "Journal: [", 0, " : ", std::uint64_t{8388608}, ")");
  tsdb::log(logging::warning, logging::phase_shift, "b");
  mdb::log(logging::severe, logging::index, "c");
  tsdb::log_mask = logging::detail;
  tsdb::log(logging::detail, logging::chains, "shown");
  tsdb::log(logging::severe, logging::chains, "hidden");
  mdb::log(logging::detail, logging::chains, "hidden");
  logging::write(logging::detail, logging::chains, "the sink filters nothing");
  EXPECT_THAT(LogCapture::lines(), testing::ElementsAre("2 1 Journal: [0 : 8388608)", "4 4 b", "8 256 c",
                                                        "1 2 shown", "1 2 the sink filters nothing"));
}

TEST(Log, TheFirstSinkWritesBareLinesToStandardError) {
  const LogCapture capture;
  std::ostringstream captured;
  std::streambuf* const before = std::cerr.rdbuf(captured.rdbuf());
  const logging::Sink replaced = logging::set_sink(nullptr);
  logging::write(logging::severe, logging::journal, "text");
  logging::set_sink(replaced);
  std::cerr.rdbuf(before);
  EXPECT_EQ(captured.str(), "text\n");
  logging::write(logging::severe, logging::journal, "to the replaced sink again");
  EXPECT_EQ(LogCapture::lines().size(), 1u);
}

}  // namespace
