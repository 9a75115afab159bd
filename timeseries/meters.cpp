#include "timeseries/meters.h"

namespace tsdb {
namespace {

// In the unit of low_group(), which the backing store calls: no program that has a store loses them.
struct LowMeters {
  meter::IntegerCounter phase_shifts{low_group(), "phase_shifts", "", "Number of phase shifts"};
  meter::MilliSecondTiming phase_shift_time{low_group(), "phase_shift_time", "ms",
                                            "Time a phase shift takes"};
};

LowMeters low_meters;

meter::IntegerCounter entrycache_counters[] = {
    {entrycache_group(), "buffer_age_flush", "",
     "Number of write buffer flush attempts caused by buffer entry age threshold crossing"},
    {entrycache_group(), "buffer_filled", "",
     "Number of times the write buffer for a check filled up so that it required flushing before the could "
     "commence"},
    {entrycache_group(), "buffer_filled_block", "",
     "Number of times the flush of a full write buffer required a phase shift to commence"},
    {entrycache_group(), "buffer_size_flush", "",
     "Number of write buffer flush attempts caused by buffer size threshold crossing"},
    {entrycache_group(), "buffer_write_aggr", "",
     "Number of times a record was simply aggregated into the in-memory write buffer"},
    {entrycache_group(), "buffer_write_ins", "",
     "Number of times a new record was inserted into the in-memory write buffer"},
    {entrycache_group(), "external_buffer_flush", "",
     "Number of times a write buffer was forced to flush for external reasons"},
    {entrycache_group(), "newest_entry_hits", "",
     "Number of times we avoided going to disk to retrieve the most recent record"},
    {entrycache_group(), "newest_entry_misses", "",
     "Number of times we had to access disk to retrieve the most recent record"},
};

}  // namespace

meter::Group& low_group() {
  static meter::Group group(nullptr, "low");
  return group;
}

meter::Group& entrycache_group() {
  static meter::Group group(nullptr, "entrycache");
  return group;
}

meter::IntegerCounter& phase_shifts() {
  return low_meters.phase_shifts;
}

meter::MilliSecondTiming& phase_shift_time() {
  return low_meters.phase_shift_time;
}

}  // namespace tsdb
