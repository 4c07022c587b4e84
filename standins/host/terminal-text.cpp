/*
 * Control characters of the module's terminal output shown as \xNN.
 */
#include "terminal-text.h"

#include <cstdio>

#include "phonebook/latin1.h"

namespace host {

std::string forTerminal(const std::string& latin1, bool utf8)
{
    std::string shown;
    shown.reserve(latin1.size());
    for (const char c : latin1) {
        const unsigned char b = static_cast<unsigned char>(c);
        if ((b < 0x20 && c != '\n' && c != '\t') || (b >= 0x7F && b < 0xA0)) {
            char hex[5];
            std::snprintf(hex, sizeof hex, "\\x%02X", b);
            shown += hex;
        } else {
            shown += c;
        }
    }
    return utf8 ? ZEMBRA::Phonebook::latin1ToUtf8(shown) : shown;
}

}  // namespace host
