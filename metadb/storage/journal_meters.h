// The meters of the journal, group "journal".

#pragma once

#include "common/meters.h"

namespace mdb::journal_meters {

extern meter::IntegerCounter aborts;
extern meter::IntegerCounter bytes;
extern meter::IntegerCounter commits;
extern meter::IntegerCounter flips;
extern meter::MicroSecondTiming sync;

}  // namespace mdb::journal_meters
