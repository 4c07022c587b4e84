/*
 * The daemon's log records on their way to standard error. The platform
 * writes its log in the calling thread, so a standard error that is not
 * read (a full pipe, a terminal stopped with Ctrl-S) would stop the task in
 * the middle of a request, and SIGTERM after it. Records go into a bounded
 * buffer instead, which a thread of its own writes out; what does not fit
 * is dropped and counted in a record of its own once there is room again.
 */
#ifndef WEBCONFD_LOGBUFFER_H
#define WEBCONFD_LOGBUFFER_H

#include <cstddef>
#include <string>

namespace webconfd {

/* A log record as the platform writes it: one line, control bytes as
 * \xNN. */
std::string logLine(int level, const char* file, const char* function, int line, const char* text);

/* Sends the platform's log records through a buffer of `bytes` to file
 * descriptor `fd`, written by a thread that is never waited for. */
void startLogBuffer(int fd, std::size_t bytes);

/* Waits up to `ms` for the buffer to be written; whether it was. */
bool flushLogBuffer(int ms);

}  // namespace webconfd

#endif
