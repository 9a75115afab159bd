// What the libraries say: texts, the words of the system, exceptions and the log.

#include <gmock/gmock.h>

#include <limits>

#include "common/text.h"
#include "observe.h"
#include "simulation/simulated_system.h"

namespace {

using support::LogCapture;

TEST(Text, PrintsNumbersInDecimalWhateverTheirWidth) {
  EXPECT_EQ(
      text::concat("block ", std::uint32_t{4294967295}, ", ", -1, ' ', std::uint8_t{65}, std::string("x"),
                   std::numeric_limits<std::uint64_t>::max(), std::numeric_limits<std::int64_t>::min()),
      "block 4294967295, -1 65x18446744073709551615-9223372036854775808");
  EXPECT_EQ(text::two_digits(7u) + text::two_digits(-7) + text::two_digits(123), "07-7123");
}

TEST(Text, OfASystemErrorIsOneLineInABufferThatTheNextCallOverwrites) {
  simulation::SimulatedSystem sim;
  const simulation::Installed use(sim);
  sim.set_error_text(112, "There is not enough space on the disk.\r\n");
  sim.set_error_text(4000000000, "\r\n\r\n");
  sim.set_error_text(1, std::string(400, 'x'));
  EXPECT_STREQ(system_error_text(112), "There is not enough space on the disk.");
  EXPECT_EQ(system_error_string(4000000000), "4000000000") << "the code when the message is empty";
  const char* text = system_error_text(1);
  EXPECT_EQ(text, std::string(255, 'x'));
  sim.inject({.operation = simulation::Operation::look_up_error, .lasting = true, .code = 317});
  EXPECT_EQ(system_error_text(77), text);
  EXPECT_STREQ(text, "77 (FormatMessage: 317)");
}

TEST(Errors, AreNoStandardExceptionsAndTellTheirContext) {
  static_assert(!std::is_base_of_v<std::exception, error::Exception>);
  mdb::error_fubar error("description");
  error.context = ", context";
  EXPECT_EQ(support::thrown_by([&] { throw mdb::error_fubar(error); }), "fubar: description, context");
}

TEST(Log, ShowsWhatTheMaskOfEachLibraryLetsThrough) {
  const LogCapture capture;
  mdb::log(logging::detail, logging::space, "hidden");
  tsdb::log(logging::warning, logging::phase_shift, "shown ", 1);
  tsdb::log_mask = logging::detail;
  tsdb::log(logging::detail, logging::chains, "shown 2");
  tsdb::log(logging::severe, logging::chains, "hidden");
  mdb::log(logging::detail, logging::chains, "hidden");
  EXPECT_THAT(LogCapture::take(), testing::ElementsAre("4 4 shown 1", "1 2 shown 2"));
}

}  // namespace
