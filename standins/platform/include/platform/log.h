/*
 * System log and debug terminal output, as the firmware declares them.
 *
 * Log records carry the caller's source file tag, function name and line;
 * they are written whatever the module's trace levels. UI_ExpWritef writes
 * printf-style text to the debug terminal. The firmware takes the file and
 * function names as char*; our own programs use the const overloads of
 * platform/standin.h.
 */
#ifndef PLATFORM_LOG_H
#define PLATFORM_LOG_H

#include "platform/attrs.h"

PLT_API void LOG_ExpInfo(char* file, char* function, int line, const char* format, ...) PLT_PRINTF(4, 5);
PLT_API void LOG_ExpError(char* file, char* function, int line, const char* format, ...) PLT_PRINTF(4, 5);
PLT_API int UI_ExpWritef(const char* format, ...) PLT_PRINTF(1, 2);

#endif
