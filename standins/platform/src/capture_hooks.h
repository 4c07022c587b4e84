/*
 * The working platform's calls into its capture (capture.cpp). Each call
 * site tests captureOn() first, so a process that captures nothing pays one
 * relaxed load per message.
 */
#ifndef PLATFORM_CAPTURE_HOOKS_H
#define PLATFORM_CAPTURE_HOOKS_H

#include <atomic>
#include <cstddef>
#include <string>

#include "platform/capture.h"

namespace plt {

extern std::atomic<bool> g_captureOn;

inline bool captureOn()
{
    return g_captureOn.load(std::memory_order_relaxed);
}

/* A datagram sent from the socket `fd` (its bound path is the source) to
 * the address `destination`: with `error` 0 just before the send, so that
 * it comes before any answer in the file; with the send's errno after a
 * send that failed. */
void captureSent(int fd, const char* destination, const unsigned char* bytes, std::size_t length, int error);

/* A message handed to the task whose socket is bound at `taskPath`: from
 * the IPC address `source` (Received) or from this process (Local, Timer). */
void captureDelivered(capture::Kind kind, const char* source, const std::string& taskPath,
                      const unsigned char* bytes, std::size_t length);

/* A datagram from the socket path `sourcePath` that the platform refused. */
void captureDropped(const std::string& sourcePath, const std::string& taskPath, const unsigned char* bytes,
                    std::size_t length);

}  // namespace plt

#endif
