/*
 * The firmware's system log and debug terminal output (declarations only,
 * see firmware-api/README.md).
 */
#ifndef FIRMWARE_PLATFORM_LOG_H
#define FIRMWARE_PLATFORM_LOG_H

void LOG_ExpInfo(char* file, char* function, int line, const char* format, ...)
    __attribute__((format(printf, 4, 5)));
void LOG_ExpError(char* file, char* function, int line, const char* format, ...)
    __attribute__((format(printf, 4, 5)));
void UI_ExpWritef(const char* format, ...) __attribute__((format(printf, 1, 2)));

#endif
