// All meters of a program at one moment, to be shown or sent. A gauge is asked for its value meanwhile.

#pragma once

#include <string>

namespace meter {

// A line for each metric: its group and name, its value and unit, its description. Inner groups and names
// follow their group after a dot. A timing shows count, total, and where there is a measurement its smallest,
// mean and largest. The groups come in the order of their construction, counters and gauges before timings.
std::string report_as_table();

// The same as one JSON object without a line end, in the same order:
//
//   {"groups": [{"name": "low",
//                "metrics": [{"name": "phase_shifts", "unit": "", "description": "...", "value": 1},
//                            {"name": "phase_shift_time", "unit": "ms", "description": "...", "count": 1,
//                             "total": 12, "total_of_squares": 144, "minimum": 12, "maximum": 12}],
//                "groups": []}]}
//
// Minimum and maximum of a timing are null before its first measurement. Numbers go up to 2^64 - 1, more than
// some readers of JSON can hold. Names and texts must be UTF-8.
std::string report_as_json();

}  // namespace meter
