/*
 * The firmware's debug terminal: line consoles of the modules, and the line
 * readers their interpreters use.
 */
#ifndef PLATFORM_DTM_H
#define PLATFORM_DTM_H

/* Registers a console under `name` (what the user types to enter it) with
 * the description `title`; the terminal passes each line typed inside the
 * console to `interpreter`. Result 0 on success. */
int DTM_ExpRegister(char const* name, char const* title, int (*interpreter)(char const* line));

/* Leaves the current console; the terminal's own prompt takes over. */
void DTM_ExpReturn();

/* Copies the word at `src` (up to the next blank, tab, line end or NUL) into
 * `dst`, NUL-terminated, and returns the number of characters consumed.
 * There is no size: `dst` must hold the whole word. */
int GetString(char* src, char* dst);

/* Reads an optionally signed decimal number at `src` into `*value` (0 when
 * no digit follows); returns the number of characters consumed. */
int adn2i(char* src, int* value);

#endif
