// Run with "*" as its argument, in a directory with files.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/platform.h"

namespace {

std::vector<std::string> arguments;

TEST(Arguments, ReachTheProgramAsTheyWereGiven) {
  (void)platform::system();
  EXPECT_EQ(arguments, std::vector<std::string>{"*"});
}

}  // namespace

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  arguments.assign(argv + 1, argv + argc);
  return RUN_ALL_TESTS();
}
