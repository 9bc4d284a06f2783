// The process's log: one background writer for every session of the process,
// set up by the first Init and never destroyed.
//
// Threads: the application thread that calls Init. The receiver and book
// threads log until the very end of the process, also while static objects
// are being destroyed, which is why the writer outlives them all.
#pragma once

#include <string>

namespace velmar {
namespace mdapi {

/// The log directory, which the log file needs before it can open.
extern const char kLogDirectory[];

/// Points the logger at the process's writer and starts it, once per process;
/// a later call, or one after an application set an output of its own, does
/// nothing. Sets the level to DEBUG.
void setUpProcessLog();

/// Creates each missing directory of a path; only "/" separates. False if a
/// directory could not be made.
bool makeLogDirectory(const std::string& path);

}  // namespace mdapi
}  // namespace velmar
