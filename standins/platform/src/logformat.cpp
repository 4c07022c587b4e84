/*
 * The log and terminal calls, the same in every platform build: each
 * forwards its arguments to the build's writeLog or writeTerminal, and the
 * builds that keep the text format it with formatText, so a record reads
 * the same whichever platform a program runs on.
 */
#include <cstdarg>
#include <cstdio>
#include <string>

#include "internal.h"
#include "platform/log.h"
#include "platform/runtime.h"

std::string plt::formatText(const char* format, va_list ap)
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

/* The firmware's char* forms and our const forms write the same records. */
#define PLT_LOG_BODY(level)                                 \
    va_list ap;                                             \
    va_start(ap, format);                                   \
    plt::writeLog(level, file, function, line, format, ap); \
    va_end(ap)

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
    plt::writeTerminal(format, ap);
    va_end(ap);
}
