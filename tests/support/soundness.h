// What the inspection of the libraries' files has to say.

#pragma once

#include <gtest/gtest.h>

#include <string_view>

#include "common/text.h"
#include "inspect/inspection.h"
#include "small_pair.h"

namespace support {

// Expects that there is no damage but such as has these words; returns the facts.
inline inspect::Inspection expect_sound(std::string_view excused = "\n") {
  inspect::Inspection inspection =
      inspect::inspect_pair(mdb_test::directory, std::nullopt, {.entries = true});
  for (const auto& [severity, place, text] : inspection.report.findings()) {
    const bool is_fine = severity == inspect::Severity::note || text.find(excused) != std::string::npos;
    EXPECT_TRUE(is_fine) << inspect::name_of(place.file) << ' ' << place.block.value_or(0) << ':'
                         << place.offset << ' ' << text;
  }
  EXPECT_TRUE(inspection.mdb || inspection.tsdb) << "there is nothing to be sound";
  return inspection;
}

}  // namespace support
