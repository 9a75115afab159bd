// The time series database: its header, its chains, and the series that they describe.

#pragma once

#include "file_image.h"
#include "inspect/facts.h"
#include "inspect/report.h"

namespace inspect {

// Walks the whole file. Throws Unreadable.
TsdbFacts check_tsdb(const SourceFile& file, const Wanted& wanted, Report& report);

}  // namespace inspect
