/*
 * What kivo-host writes when its standard output is a terminal: the
 * module's ISO-8859-1 text with its control characters shown harmlessly,
 * so that phonebook content cannot clear the screen, set the title or
 * steer the terminal otherwise. On a pipe the host writes the bytes as
 * they are and does not use this.
 */
#ifndef HOST_TERMINAL_TEXT_H
#define HOST_TERMINAL_TEXT_H

#include <string>

namespace host {

/* `latin1` for a terminal: line feeds and tabs stay, every other control
 * character (C0, DEL, C1) becomes "\xNN"; in UTF-8 when `utf8` is set. */
std::string forTerminal(const std::string& latin1, bool utf8);

}  // namespace host

#endif
