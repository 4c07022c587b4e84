/*
 * System log and debug terminal output.
 *
 * Log records carry the caller's source file tag, function name and line;
 * they are written whatever the module's trace levels. UI_ExpWritef writes
 * printf-style text to the debug terminal.
 */
#ifndef PLATFORM_LOG_H
#define PLATFORM_LOG_H

#include "platform/attrs.h"

PLT_API void LOG_ExpInfo(const char* file, const char* function, int line, const char* format, ...)
    PLT_PRINTF(4, 5);
PLT_API void LOG_ExpError(const char* file, const char* function, int line, const char* format, ...)
    PLT_PRINTF(4, 5);
PLT_API int UI_ExpWritef(const char* format, ...) PLT_PRINTF(1, 2);

#endif
