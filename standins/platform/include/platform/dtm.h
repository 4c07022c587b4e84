/*
 * Debug terminal: line consoles of the modules, and the line readers their
 * interpreters use, as the firmware declares them.
 */
#ifndef PLATFORM_DTM_H
#define PLATFORM_DTM_H

#include "platform/attrs.h"

/* Registers a console under `name` (what the user types to enter it) with
 * the description `title`; the terminal passes each line typed inside the
 * console to `interpreter`. Result 0 on success. */
PLT_API int DTM_ExpRegister(const char* name, const char* title, int (*interpreter)(const char* line));

/* Leaves the current console; the terminal's own prompt takes over. */
PLT_API int DTM_ExpReturn();

/* Copies the word at `src` (up to the next blank, tab, line end or NUL) into
 * `dst`, NUL-terminated, and returns the number of characters consumed.
 * There is no size: `dst` must hold the whole word. */
PLT_API int GetString(char* src, char* dst);

/* Reads an optionally signed decimal number at `src` into `*value` (0 when
 * no digit follows; saturated at the int range); returns the number of
 * characters consumed. */
PLT_API int adn2i(char* src, int* value);

#endif
