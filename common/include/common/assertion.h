// What happens when the program itself is wrong.

#pragma once

#include <string_view>

// Reports a broken internal invariant: prints "Assertion failed: ", the text and a newline on standard
// error and aborts the process. Not an exception: nothing that the process holds can be trusted any more.
[[noreturn]] void assertion_failed(std::string_view text);
