#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "common/errors.h"
#include "common/log.h"
#include "observe.h"

namespace {

using support::LogCapture;
using support::thrown_by;

template <typename Base, typename... Derived>
constexpr bool all_derive_from = (std::is_base_of_v<Base, Derived> && ...);

TEST(Errors, AreCaughtByTheirFamiliesAndTellTheirContext) {
  static_assert(all_derive_from<tsdb::error_io, tsdb::error_open, tsdb::error_read, tsdb::error_seek,
                                tsdb::error_toobig>);
  static_assert(all_derive_from<tsdb::error_generic, tsdb::error_io, tsdb::error_internal,
                                tsdb::error_consistency, tsdb::error_dbnospace, tsdb::error_dbspacewrap>);
  static_assert(
      all_derive_from<tsdb::error_internal, tsdb::error_dbtype, tsdb::error_dcalloc, tsdb::error_unref_used>);
  static_assert(all_derive_from<mdb::error_io, mdb::error_open, mdb::error_seek>);
  static_assert(all_derive_from<mdb::error_generic, mdb::error_io, mdb::error_internal,
                                mdb::error_consistency, mdb::error_bigobj, mdb::error_transact>);
  static_assert(all_derive_from<mdb::error_internal, mdb::error_range>);
  static_assert(all_derive_from<mdb::error_consistency, mdb::error_fubar, mdb::error_need_repair,
                                mdb::error_unsupported>);
  static_assert(all_derive_from<error::Exception, tsdb::error_generic, mdb::error_generic>);
  static_assert(!std::is_base_of_v<std::exception, error::Exception>);
  static_assert(!std::is_base_of_v<mdb::error_io, mdb::error_internal>);

  mdb::error_fubar error("description");
  error.context = ", context";
  EXPECT_EQ(thrown_by([&] { throw mdb::error_fubar(error); }), "fubar: description, context");
}

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
  EXPECT_THAT(LogCapture::take(), testing::ElementsAre("2 1 Journal: [0 : 8388608)", "4 4 b", "8 256 c",
                                                       "1 2 shown", "1 2 the sink filters nothing"));
}

TEST(Log, TheFirstSinkWritesBareLinesToStandardError) {
  const LogCapture capture;
  const logging::Sink replaced = logging::set_sink(nullptr);
  testing::internal::CaptureStderr();
  logging::write(logging::severe, logging::journal, "text");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "text\n");
  logging::set_sink(replaced);
  logging::write(logging::severe, logging::journal, "to the replaced sink again");
  EXPECT_EQ(LogCapture::take().size(), 1u);
}

}  // namespace
