/*
 * The working platform's log and terminal output. Records go to the sink a
 * program set or else as one line each to standard error, with control
 * bytes escaped; terminal text goes to its sink or to standard output as
 * it is.
 */
#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <string>

#include "working.h"

namespace {

std::mutex g_sinkMu;
PLT_LogSink g_logSink = nullptr;
PLT_TerminalSink g_termSink = nullptr;

std::string vformat(const char* format, va_list ap)
{
    if (format == nullptr)
        return std::string();
    char small[256];
    va_list copy;
    va_copy(copy, ap);
    int n = std::vsnprintf(small, sizeof small, format, copy);
    va_end(copy);
    if (n < 0)
        return "(bad format)";
    if (static_cast<std::size_t>(n) < sizeof small)
        return std::string(small, static_cast<std::size_t>(n));
    std::string big(static_cast<std::size_t>(n) + 1, '\0');
    std::vsnprintf(&big[0], big.size(), format, ap);
    big.resize(static_cast<std::size_t>(n));
    return big;
}

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

/* A log record is one line whatever its text holds: control bytes (C0,
 * DEL, C1 whether raw or written in UTF-8) are shown as \xNN, so text from
 * outside can neither end the line nor steer the terminal. Other bytes
 * (UTF-8 from the daemon, ISO-8859-1 from the module) stay as they are. */
std::string printable(const std::string& text)
{
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

void emitLog(int level, const char* file, const char* function, int line, std::string text)
{
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r'))
        text.pop_back();
    file = file ? file : "?";
    function = function ? function : "?";
    std::lock_guard<std::mutex> lock(g_sinkMu);
    if (g_logSink != nullptr) {
        g_logSink(level, file, function, line, text.c_str());
        return;
    }
    std::fprintf(stderr, "%s %s %s:%d %s\n", level == PLT_LOG_ERROR ? "ERROR" : "INFO", printable(file).c_str(),
                 printable(function).c_str(), line, printable(text).c_str());
}

void emitTerminal(const std::string& bytes)
{
    std::lock_guard<std::mutex> lock(g_sinkMu);
    if (g_termSink != nullptr) {
        g_termSink(bytes.data(), bytes.size());
        return;
    }
    std::fwrite(bytes.data(), 1, bytes.size(), stdout);
    std::fflush(stdout);
}

}  // namespace

/* The firmware's char* forms and our const forms write the same records. */
#define PLT_LOG_BODY(level)                          \
    va_list ap;                                      \
    va_start(ap, format);                            \
    std::string text = vformat(format, ap);          \
    va_end(ap);                                      \
    emitLog(level, file, function, line, std::move(text))

void LOG_ExpInfo(char* file, char* function, int line, const char* format, ...)
{
    PLT_LOG_BODY(PLT_LOG_INFO);
}

void LOG_ExpError(char* file, char* function, int line, const char* format, ...)
{
    PLT_LOG_BODY(PLT_LOG_ERROR);
}

void LOG_ExpInfo(const char* file, const char* function, int line, const char* format, ...)
{
    PLT_LOG_BODY(PLT_LOG_INFO);
}

void LOG_ExpError(const char* file, const char* function, int line, const char* format, ...)
{
    PLT_LOG_BODY(PLT_LOG_ERROR);
}

void UI_ExpWritef(const char* format, ...)
{
    va_list ap;
    va_start(ap, format);
    std::string text = vformat(format, ap);
    va_end(ap);
    emitTerminal(text);
}

void PLT_SetLogSink(PLT_LogSink sink)
{
    std::lock_guard<std::mutex> lock(g_sinkMu);
    g_logSink = sink;
}

void PLT_SetTerminalSink(PLT_TerminalSink sink)
{
    std::lock_guard<std::mutex> lock(g_sinkMu);
    g_termSink = sink;
}
