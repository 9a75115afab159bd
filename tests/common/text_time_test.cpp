#include <gtest/gtest.h>

#include <limits>

#include "common/text.h"
#include "common/time.h"
#include "simulation/simulated_system.h"

namespace {

using timing::SecondsMicroseconds;

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

TEST(Time, NormalisesBorrowsAndRounds) {
  EXPECT_EQ(timing::normalize({5, 2'500'000}), (SecondsMicroseconds{7, 500'000}));
  EXPECT_EQ(timing::normalize({5, 1'000'000}), (SecondsMicroseconds{6, 0}));
  EXPECT_EQ(timing::normalize({-5, 999'999}), (SecondsMicroseconds{-5, 999'999}));
  EXPECT_EQ(timing::difference({10, 0}, {9, 999'999}), (SecondsMicroseconds{0, 1}));
  EXPECT_EQ(timing::difference({10, 5}, {9, 5}), (SecondsMicroseconds{1, 0}));
  EXPECT_EQ(timing::to_milliseconds({2, 499}), 2000u);
  EXPECT_EQ(timing::to_milliseconds({2, 500}), 2001u);
  EXPECT_EQ(timing::to_milliseconds({2'147'483'647, 999'999}), 2'147'483'648'000u);
}

TEST(Time, AStopWatchFollowsTheMonotonicClockOnly) {
  simulation::SimulatedSystem sim;
  const simulation::Installed use(sim);
  const timing::StopWatch watch;
  sim.set_calendar_seconds(0);
  sim.advance_microseconds(5'000'000'500);
  EXPECT_EQ(watch.elapsed_microseconds(), 5'000'000'500u);
  EXPECT_EQ(watch.elapsed_milliseconds(), 5'000'001u);
}

#if GTEST_HAS_DEATH_TEST
TEST(TimeDeathTest, NegativeMicrosecondsAreABrokenInvariant) {
  EXPECT_DEATH((void)timing::normalize({5, -1}),
               "Assertion failed: Cannot normalize negative microseconds\n");
  EXPECT_DEATH((void)timing::difference({1, 0}, {0, 1'000'001}), "Assertion failed: Negative usec\n");
}
#endif

}  // namespace
