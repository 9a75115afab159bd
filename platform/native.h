// The seam between the platform library and the system it was built for.

#pragma once

#include "platform/platform.h"

namespace platform {

// The operating system this library was built for; lives as long as the process.
System& native_system();

}  // namespace platform
