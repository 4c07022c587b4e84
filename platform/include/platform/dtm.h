/*
 * Debug terminal: line consoles of the modules, and the line readers their
 * interpreters use.
 */
#ifndef PLATFORM_DTM_H
#define PLATFORM_DTM_H

#include <cstddef>

#include "platform/attrs.h"

typedef int (*DTM_Interpreter)(const char* line);

/* Registers a console under `name` (what the user types to enter it) with
 * the description `title`; the terminal passes each line typed inside the
 * console to `interpreter`. Result 0 or a MAN_E_ code. */
PLT_API int DTM_ExpRegister(const char* name, const char* title, DTM_Interpreter interpreter);

/* Leaves the current console; the terminal's own prompt takes over. */
PLT_API int DTM_ExpReturn();

/* Copies the word at `src` (up to the next blank, tab or line end) into
 * `dst`, cut to dstSize - 1 characters and NUL-terminated; returns the number
 * of characters of `src` consumed (the whole word, also when cut). */
PLT_API int GetStringN(const char* src, char* dst, std::size_t dstSize);

/* The platform's word reader; the buffer's size comes from its type, so a
 * word is never written past the end of the buffer. */
template <std::size_t N>
inline int GetString(const char* src, char (&dst)[N])
{
    return GetStringN(src, dst, N);
}

/* Reads an optionally signed decimal number at `src` into `*value` (0 when
 * no digit follows; saturated at the int range); returns the number of
 * characters consumed. */
PLT_API int adn2i(const char* src, int* value);

#endif
