/*
 * What the platform builds share below their public headers: the raw
 * message block that tasks receive, the hook through which the recording
 * build makes calls fail on demand, and the log's formatting with the hooks
 * through which each build takes its records.
 */
#ifndef PLATFORM_INTERNAL_H
#define PLATFORM_INTERNAL_H

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/fault.h"
#include "platform/standin.h"

namespace plt {

/* Default terminal output (fd 1) and log records (fd 2): through the
 * bounded queue once a program has started it (output.cpp), else at once. */
void writeOutput(int fd, const std::string& bytes);
void writeOutputf(int fd, const char* format, ...) __attribute__((format(printf, 2, 3)));

/* A received message: a header followed by the message bytes (primitive
 * first). A task callback gets a pointer to the bytes, as on the firmware,
 * where the primitive is the first four bytes of the raw message; rawHandle
 * and rawOf convert between the two. */
struct RawMsg {
    uint32_t magic;
    uint32_t length;
    char source[64];   /* sender's IPC address, "" when not from IPC */
    unsigned char* bytes() { return reinterpret_cast<unsigned char*>(this + 1); }
};

constexpr uint32_t RAW_MAGIC = 0x4b4d5347;  /* "KMSG" */

/* Copies `length` bytes into a new raw message; null when out of memory or
 * when length exceeds MAN_MAX_MSG. */
RawMsg* rawAlloc(const unsigned char* data, std::size_t length);
/* Releases a raw message made by rawAlloc (clears its magic first). */
void rawFree(RawMsg* raw);

/* The raw message as a task receives it, and back. */
inline void* rawHandle(RawMsg* raw)
{
    return raw == nullptr ? nullptr : raw->bytes();
}
inline RawMsg* rawOf(const void* handle)
{
    if (handle == nullptr)
        return nullptr;
    return reinterpret_cast<RawMsg*>(const_cast<unsigned char*>(static_cast<const unsigned char*>(handle)) -
                                     sizeof(RawMsg));
}

/* Calls that the recording build can make fail. */
using Fault = PltFault;

/* 0, or the code with which the next such call must fail. The working build
 * always answers 0. */
int faultFor(Fault which);

/* Every Create, with the flags and size hint the message itself does not
 * keep; the recording build records them, the working build ignores them. */
void noteCreate(unsigned int primitive, unsigned int flags, int size);

/* The text of a log record or of terminal output: the printf format
 * applied to its arguments. "" for a null format, "(bad format)" when the
 * C library refuses it. */
std::string formatText(const char* format, va_list ap);

/* The log and terminal calls (logformat.cpp) hand their arguments to these,
 * which each build defines: the working build writes them out, the
 * recording build records them, the benchmark build counts them. */
void writeLog(int level, const char* file, const char* function, int line, const char* format, va_list ap);
void writeTerminal(const char* format, va_list ap);

}  // namespace plt

#endif
