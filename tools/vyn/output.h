// Standard output of the vyn program as its commands share it.
//
// Lines that threads print while a command runs (the traffic printer) go
// through WriteOutputLine: it never blocks for long on a pipe that nobody
// reads. After waiting a while for a full pipe it drops lines, counting them,
// until the pipe takes output again and a note tells how many were lost, so
// that a stalled reader neither stops the program nor makes it buffer
// without bound. A pipe whose reader has gone marks the output as broken.
//
// FinishOutput flushes and closes standard output at the end of the program
// and reports whether everything written arrived, so that a full disk or a
// closed pipe makes the program fail instead of claiming success.
//
// Thread-safety: WriteOutputLine may be called from any thread (lines are
// written whole, one at a time); the rest belongs to the main thread.
#pragma once

#include <string>

namespace vyn::tool {

// Writes `line` (a line end is added) to standard output; false when the
// line was dropped or the output is broken.
bool WriteOutputLine(const std::string& line);
// The same for text that carries its own line ends.
bool WriteOutputText(const std::string& text);
// printf into WriteOutputText.
void PrintOutput(const char* format, ...) __attribute__((format(printf, 1, 2)));

// A message line on standard error that, like WriteOutputLine, waits only
// a short while for a pipe that nobody reads and is dropped then.
void WriteErrorLine(const std::string& line);

// True once a write found the reader of standard output gone.
bool OutputBroken();

// Flushes and closes standard output; false (after a message on standard
// error) when any output was lost.
bool FinishOutput();

}  // namespace vyn::tool
