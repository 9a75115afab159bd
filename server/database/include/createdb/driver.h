// The creation tool as a whole.

#pragma once

namespace createdb {

// Runs the tool with the arguments of a program and returns the status with which the process shall end.
int run(int argc, char** argv);

}  // namespace createdb
