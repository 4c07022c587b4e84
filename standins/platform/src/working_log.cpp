/*
 * The working platform's log and terminal output. Records go to the sink a
 * program set or else as one line each to standard error, with control
 * bytes escaped; terminal text goes to its sink or to standard output as
 * it is. The texts are formatted by the code all builds share
 * (logformat.cpp).
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
    plt::writeOutputf(2, "%s %s %s:%d %s\n", level == PLT_LOG_ERROR ? "ERROR" : "INFO", printable(file).c_str(),
                      printable(function).c_str(), line, printable(text).c_str());
}

void emitTerminal(const std::string& bytes)
{
    std::lock_guard<std::mutex> lock(g_sinkMu);
    if (g_termSink != nullptr) {
        g_termSink(bytes.data(), bytes.size());
        return;
    }
    plt::writeOutput(1, bytes);
}

}  // namespace

void plt::writeLog(int level, const char* file, const char* function, int line, const char* format, va_list ap)
{
    emitLog(level, file, function, line, plt::formatText(format, ap));
}

void plt::writeTerminal(const char* format, va_list ap)
{
    emitTerminal(plt::formatText(format, ap));
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
