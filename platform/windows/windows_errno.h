// The C library's error numbers for the system's.

#pragma once

#include <cstdint>

namespace platform {

// The errno value that says what the system's error code says; EINVAL for codes without one.
int errno_of(std::uint32_t system_code);

}  // namespace platform
