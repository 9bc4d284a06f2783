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

/// Points the logger at the process's writer, with its files in `directory`,
/// and starts it, once per process; a later call, or one after an
/// application set an output of its own, does nothing. Sets the level to
/// DEBUG unless `keepLevel` (the application chose one through SetOption).
void setUpProcessLog(const std::string& directory, bool keepLevel);

/// Any thread: true once the first Init of the process built the writer.
bool processLogStarted();

/// Any thread but the writer's: waits up to `seconds` until the lines written
/// so far are in the file; false if they are not, or no writer runs. The
/// FATAL and THROW paths use it; so do tests.
bool flushProcessLog(double seconds);

/// Creates each missing directory of a path; only "/" separates. False if a
/// directory could not be made.
bool makeLogDirectory(const std::string& path);

}  // namespace mdapi
}  // namespace velmar
