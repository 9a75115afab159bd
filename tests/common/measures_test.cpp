// What the libraries measure: meters and times.

#include <gmock/gmock.h>

#include "common/meter_report.h"
#include "common/meters.h"
#include "common/time.h"
#include "simulation/simulated_system.h"

namespace {

using timing::SecondsMicroseconds;

TEST(Meters, AReportHasThemAllAndAsksTheGauges) {
  static std::uint64_t reading;
  reading = 6;
  meter::Group outer(nullptr, "outer");
  meter::Group inner(&outer, "inner");
  meter::IntegerCounter count(outer, "count", "", "a \"quoted\\text\"\n");
  const meter::IntegerGaugeCallback gauge(
      inner, "gauge", "kB", "Size", std::make_unique<meter::Bind0<std::uint64_t>>([] { return ++reading; }));
  meter::MilliSecondTiming unused(outer, "unused", "ms", "Never");
  meter::MilliSecondTiming used(outer, "used", "ms", "Twice");
  count.increment(~std::uint64_t{0});
  used.add(8);
  used.add(4);
  EXPECT_THAT(meter::report_as_table(),
              testing::EndsWith("outer.count        18446744073709551615               a \"quoted\\text\"\n\n"
                                "outer.unused       0 in 0 ms                          Never\n"
                                "outer.used         2 in 12 ms (min 4, mean 6, max 8)  Twice\n"
                                "outer.inner.gauge  7 kB                               Size\n"));
  EXPECT_THAT(
      meter::report_as_json(),
      testing::EndsWith(R"({"name": "outer", "metrics": [{"name": "count", "unit": "", "description": )"
                        R"("a \"quoted\\text\"\u000a", "value": 18446744073709551615}, )"
                        R"({"name": "unused", "unit": "ms", "description": "Never", "count": 0, )"
                        R"("total": 0, "total_of_squares": 0, "minimum": null, "maximum": null}, )"
                        R"({"name": "used", "unit": "ms", "description": "Twice", "count": 2, )"
                        R"("total": 12, "total_of_squares": 80, "minimum": 4, "maximum": 8}], )"
                        R"("groups": [{"name": "inner", "metrics": [{"name": "gauge", "unit": "kB", )"
                        R"("description": "Size", "value": 8}], "groups": []}]}]})"));
}

TEST(Time, NormalisesBorrowsAndRounds) {
  EXPECT_EQ(timing::normalize({5, 2'500'000}), (SecondsMicroseconds{7, 500'000}));
  EXPECT_EQ(timing::normalize({-5, 999'999}), (SecondsMicroseconds{-5, 999'999}));
  EXPECT_EQ(timing::difference({10, 0}, {9, 999'999}), (SecondsMicroseconds{0, 1}));
  EXPECT_EQ(timing::difference({10, 5}, {9, 5}), (SecondsMicroseconds{1, 0}));
  EXPECT_EQ(timing::to_milliseconds({2, 499}), 2000u);
  EXPECT_EQ(timing::to_milliseconds({2'147'483'647, 999'999}), 2'147'483'648'000u);
}

TEST(Time, AScopeIsTimedByTheMonotonicClockHoweverItIsLeft) {
  simulation::SimulatedSystem sim;
  const simulation::Installed use(sim);
  meter::Group group(nullptr, "group");
  meter::MicroSecondTiming timing(group, "timing", "us", "");
  const timing::StopWatch watch;
  const auto failing = [&] {
    const meter::ScopedMicroSeconds scope(timing);
    sim.set_calendar_seconds(0);
    sim.advance_microseconds(5'000'000'500);
    throw 1;
  };
  EXPECT_THROW(failing(), int);
  EXPECT_EQ(timing.count(), 1u);
  EXPECT_EQ(timing.total(), 5'000'000'500u);
  EXPECT_EQ(watch.elapsed_milliseconds(), 5'000'001u);
}

#if GTEST_HAS_DEATH_TEST
TEST(MetersDeathTest, TwoOfAGroupMayNotShareAName) {
  meter::Group group(nullptr, "low");
  meter::IntegerCounter counter(group, "twice", "", "");
  EXPECT_DEATH(meter::MicroSecondTiming(group, "twice", "us", ""),
               "Assertion failed: Two meters are named low.twice\n");
}
#endif

}  // namespace
