// The least work a per-process scan can do: list /proc and open, read and
// close the files it needs, with no parsing, no allocation per file and no
// formatting. Benchmarks set the daemon's readers against these.
#pragma once

#include <string>
#include <vector>

namespace halvexd::bench {

// Numeric entries of /proc, in directory order.
std::vector<int> listProcPids();

// Opens /proc/<pid>/<file>, reads it into a fixed buffer and closes it.
// Returns the number of bytes read, or -1 when it cannot be opened.
long readProcFile(int pid, const char* file);

// Number of numeric entries of /proc right now.
size_t countProcesses();

// Runs `argv` with its output thrown away and waits for it. Returns the CPU
// time it used (user and system, in seconds) and its exit status in
// `status`; a negative time when it could not be started or did not exit.
double runQuietly(const std::vector<std::string>& argv, int& status);

}  // namespace halvexd::bench
