#include "journal_meters.h"

namespace mdb::journal_meters {
namespace {

meter::Group group(nullptr, "journal");

}  // namespace

meter::IntegerCounter aborts(group, "aborts", "", "Number of transactions abort'ed");
meter::IntegerCounter bytes(group, "bytes", "", "Number of bytes written to journal");
meter::IntegerCounter commits(group, "commits", "", "Number of transactions commit'ed");
meter::IntegerCounter flips(group, "flips", "", "Number of transactions flips");
meter::MicroSecondTiming sync(group, "sync", "us", "Time spent sync'ing journal");

}  // namespace mdb::journal_meters
