// Words of the files in the form in which findings show them.

#pragma once

#include <cstdint>
#include <string>

#include "file_image.h"

namespace inspect {

// A magic as its four characters in quotes, or in hexadecimal digits when they cannot be printed.
std::string magic_text(std::uint32_t word);

}  // namespace inspect
