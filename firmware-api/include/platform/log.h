/*
 * The firmware's system log and debug terminal output.
 *
 * Log records carry the caller's source file tag, function name and line;
 * they are written whatever a module's trace levels. The firmware takes the
 * file and function names as char*. UI_ExpWritef writes printf-style text
 * to the debug terminal.
 */
#ifndef PLATFORM_LOG_H
#define PLATFORM_LOG_H

void LOG_ExpInfo(char* file, char* function, int line, const char* format, ...)
    __attribute__((format(printf, 4, 5)));
void LOG_ExpError(char* file, char* function, int line, const char* format, ...)
    __attribute__((format(printf, 4, 5)));
void UI_ExpWritef(const char* format, ...) __attribute__((format(printf, 1, 2)));

#endif
