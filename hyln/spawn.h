// Child processes, started from an argument vector: no shell ever reads our paths.
#ifndef HYLN_SPAWN_H
#define HYLN_SPAWN_H

#include <string>
#include <vector>

namespace hyln {

// Runs arguments[0] with the given arguments and waits for it. Returns its exit
// code, 128 + the signal that ended it, or -1 when it could not be started
// (`error` then says why).
int runProgram(const std::vector<std::string>& arguments, std::string& error);

} // namespace hyln

#endif
