/*
 * Bounded output (stand-in extra): the program's terminal output and log
 * records go through one bounded queue that a writer thread drains, so a
 * task or the IPC reader never waits for a reader of standard output or
 * error that does not read (a pipe nobody empties, Ctrl-S at a terminal).
 * What does not fit is dropped and counted; the count is reported as a
 * log record once the writer catches up, or at the finish.
 *
 * A line editor takes the queue over while it shows its prompt (hold), so
 * that it can write what arrives above the prompt and draw the prompt again.
 */
#ifndef PLATFORM_OUTPUT_H
#define PLATFORM_OUTPUT_H

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "platform/attrs.h"

/* From now on the default terminal output and log records, and
 * PLT_Output, are queued, at most `bytes` waiting. */
PLT_API void PLT_StartBoundedOutput(std::size_t bytes);

/* Writes to standard output (fd 1) or error (fd 2): queued once bounded
 * output is started, else at once. Any thread. */
PLT_API void PLT_Output(int fd, const char* bytes, std::size_t length);

/* Writes what is queued while the writer makes progress (it gives up after
 * 2 s without), reports what was dropped, and stops the writer: later
 * output is written at once again. */
PLT_API void PLT_FinishOutput();

/* While held, the writer leaves the queue alone: PLT_OutputWakeFd()
 * becomes readable when something waits, and PLT_TakeOutput() hands it
 * over as (fd, bytes) in order. Holding waits for a write under way. */
PLT_API void PLT_HoldOutput(bool hold);
PLT_API int PLT_OutputWakeFd();
PLT_API std::vector<std::pair<int, std::string>> PLT_TakeOutput();

#endif
