// Starting the reference readers and helper tools the benchmarks compare
// against, through the system's one task runner.
#ifndef ZQ_BENCH_BENCHPROGRAM_H_
#define ZQ_BENCH_BENCHPROGRAM_H_

#include <optional>
#include <string>
#include <vector>

// `program` itself when it holds a '/', else where the PATH finds it.
std::optional<std::string> ProgramPath(const std::string& program);

// Whether ProgramPath finds `program` and it may be run.
bool ProgramInstalled(const std::string& program);

// Runs `argv` (a program found as ProgramPath finds it, and its arguments)
// with `input` on its standard input, and waits; true when it exits with
// status 0.  What it says goes to standard error, where it cannot break the
// table of figures.
bool RunProgram(const std::vector<std::string>& argv, const std::string& input = std::string());

#endif  // ZQ_BENCH_BENCHPROGRAM_H_
