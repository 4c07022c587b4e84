/*
 * The buffer behind the daemon's log sink. The sink only appends under a
 * lock, never writes; the writer thread takes what is buffered and writes
 * it without the lock, so a write that blocks holds up nothing but itself.
 */
#include "logbuffer.h"

#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <thread>

#include "platform/log.h"
#include "platform/runtime.h"
#include "platform/standin.h"

namespace webconfd {

namespace {

const char kFile[] = "webconfd";

struct LogBuffer {
    std::mutex lock;
    std::condition_variable changed;
    std::string pending;          // records not yet written
    std::size_t bound = 0;
    bool writing = false;         // the writer holds records taken from `pending`
    unsigned long dropped = 0;    // records that did not fit since the last count
    int fd = 2;
};

/* Made once and never destroyed: the writer may still be blocked in
 * write() when the program ends. */
LogBuffer* g_buffer;

/* Length of the well-formed UTF-8 sequence of 2 to 4 bytes at `p`, 0 when
 * there is none. */
std::size_t utf8Sequence(const unsigned char* p, std::size_t left)
{
    std::size_t n = p[0] >= 0xF0 && p[0] <= 0xF4 ? 4 : p[0] >= 0xE0 ? 3 : p[0] >= 0xC2 && p[0] < 0xE0 ? 2 : 0;
    if (n == 0 || n > left)
        return 0;
    for (std::size_t i = 1; i < n; i++)
        if ((p[i] & 0xC0) != 0x80)
            return 0;
    return n;
}

/* Control bytes (C0, DEL, C1 raw or in UTF-8) as \xNN, as the platform
 * writes them: text from outside can neither end the line nor steer the
 * terminal. */
std::string printable(const char* s)
{
    const std::string text = s != nullptr ? s : "?";
    std::string out;
    out.reserve(text.size());
    const auto* p = reinterpret_cast<const unsigned char*>(text.data());
    for (std::size_t i = 0; i < text.size();) {
        const std::size_t n = utf8Sequence(p + i, text.size() - i);
        const bool c1InUtf8 = n == 2 && p[i] == 0xC2 && p[i + 1] < 0xA0;
        if (n > 0 && !c1InUtf8) {
            out.append(text, i, n);
            i += n;
            continue;
        }
        for (std::size_t end = i + (n > 0 ? n : 1); i < end; i++) {
            if (p[i] < 0x20 || (p[i] >= 0x7F && p[i] < 0xA0) || c1InUtf8) {
                char hex[5];
                std::snprintf(hex, sizeof hex, "\\x%02X", p[i]);
                out += hex;
            } else {
                out += static_cast<char>(p[i]);
            }
        }
    }
    return out;
}

void sink(int level, const char* file, const char* function, int line, const char* text)
{
    const std::string record = logLine(level, file, function, line, text);
    LogBuffer& b = *g_buffer;
    {
        std::lock_guard<std::mutex> guard(b.lock);
        if (b.pending.size() + record.size() > b.bound) {
            b.dropped++;
            return;
        }
        b.pending += record;
    }
    b.changed.notify_all();
}

/* Writes all of `text`; false when the descriptor refuses for good (a pipe
 * whose reader is gone: SIGPIPE is ignored). */
bool writeAll(int fd, const std::string& text)
{
    for (std::size_t at = 0; at < text.size();) {
        const ssize_t n = ::write(fd, text.data() + at, text.size() - at);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        at += static_cast<std::size_t>(n);
    }
    return true;
}

void writer()
{
    LogBuffer& b = *g_buffer;
    bool open = true;
    std::unique_lock<std::mutex> guard(b.lock);
    for (;;) {
        b.changed.wait(guard, [&b] { return !b.pending.empty() || b.dropped > 0; });
        std::string text;
        text.swap(b.pending);
        const unsigned long dropped = b.dropped;
        b.dropped = 0;
        b.writing = true;
        guard.unlock();
        if (open && !text.empty())
            open = writeAll(b.fd, text);
        if (dropped > 0)   /* through the sink, so that it lands in the buffer when there is room */
            LOG_ExpError(kFile, "writer", __LINE__, "%lu log records dropped: standard error did not take them",
                         dropped);
        guard.lock();
        b.writing = false;
        b.changed.notify_all();
    }
}

}  // namespace

std::string logLine(int level, const char* file, const char* function, int line, const char* text)
{
    std::string t = text != nullptr ? text : "";
    while (!t.empty() && (t.back() == '\n' || t.back() == '\r'))
        t.pop_back();
    return std::string(level == PLT_LOG_ERROR ? "ERROR " : "INFO ") + printable(file) + " " + printable(function) +
           ":" + std::to_string(line) + " " + printable(t.c_str()) + "\n";
}

void startLogBuffer(int fd, std::size_t bytes)
{
    if (g_buffer != nullptr)
        return;
    g_buffer = new LogBuffer;
    g_buffer->fd = fd;
    g_buffer->bound = bytes;
    std::thread(writer).detach();
    PLT_SetLogSink(sink);
}

bool flushLogBuffer(int ms)
{
    if (g_buffer == nullptr)
        return true;
    LogBuffer& b = *g_buffer;
    std::unique_lock<std::mutex> guard(b.lock);
    return b.changed.wait_for(guard, std::chrono::milliseconds(ms),
                              [&b] { return b.pending.empty() && b.dropped == 0 && !b.writing; });
}

}  // namespace webconfd
