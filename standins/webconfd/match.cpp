/*
 * Keys of names and numbers. ISO-8859-1 keeps upper and lower case letters
 * 0x20 apart, in A-Z as in 0xC0-0xDE (without 0xD7, the multiplication
 * sign), which is all case folding needs.
 */
#include "match.h"

#include <cstring>

namespace webconfd {

namespace {

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

bool isSeparator(char c)
{
    return std::strchr(" \t-/.()", c) != nullptr && c != '\0';
}

/* Base letters of 0xC0..0xFF, lower case; "" where the character is no
 * letter (the multiplication and division signs). */
const char* const kBaseLetters[64] = {
    "a", "a", "a", "a", "a", "a", "ae", "c", "e", "e", "e", "e", "i", "i", "i", "i",   // C0
    "d", "n", "o", "o", "o", "o", "o", "",   "o", "u", "u", "u", "u", "y", "th", "ss", // D0
    "a", "a", "a", "a", "a", "a", "ae", "c", "e", "e", "e", "e", "i", "i", "i", "i",   // E0
    "d", "n", "o", "o", "o", "o", "o", "",   "o", "u", "u", "u", "u", "y", "th", "y",  // F0
};

}  // namespace

std::string numberKey(const std::string& dialString)
{
    std::string text = dialString;
    /* "+49 (0)711 ...": the trunk prefix in brackets is not dialled from
     * abroad. At the start, "(0)" would be the number itself. */
    const std::size_t firstDigit = text.find_first_of("0123456789");
    for (std::size_t at = text.find("(0)", 1); at != std::string::npos; at = text.find("(0)", at)) {
        if (at > firstDigit)
            text.erase(at, 3);
        else
            at++;
    }
    const std::size_t first = text.find_first_not_of(" \t");
    const bool international = first != std::string::npos && text[first] == '+';

    std::string digits;
    std::string kept;   // the text minus separators, for odd numbers
    bool odd = false;
    for (std::size_t i = 0; i < text.size(); i++) {
        const char c = text[i];
        if (isSeparator(c))
            continue;
        kept += c;
        if (isDigit(c))
            digits += c;
        else if (!(c == '+' && international && i == first))
            odd = true;
    }
    if (odd)
        return kept;
    if (digits.empty())
        return std::string();
    if (international)
        return "+" + digits;
    if (digits.compare(0, 2, "00") == 0)
        return "+" + digits.substr(2);
    if (digits[0] == '0')
        return std::string("+") + kHomeCountryCode + digits.substr(1);
    return digits;
}

std::string nameKey(const std::string& latin1)
{
    std::string key = latin1;
    for (char& ch : key) {
        const unsigned char c = static_cast<unsigned char>(ch);
        if ((c >= 'A' && c <= 'Z') || (c >= 0xC0 && c <= 0xDE && c != 0xD7))
            ch = static_cast<char>(c + 0x20);
    }
    return key;
}

std::string sortKey(const std::string& latin1)
{
    std::string key;
    key.reserve(latin1.size());
    for (char ch : latin1) {
        const unsigned char c = static_cast<unsigned char>(ch);
        if (c >= 'A' && c <= 'Z')
            key += static_cast<char>(c + 0x20);
        else if (c >= 0xC0)
            key += kBaseLetters[c - 0xC0];
        else
            key += ch;
    }
    return key;
}

std::string typedDigits(const std::string& text)
{
    std::string digits;
    for (char c : text) {
        if (isDigit(c))
            digits += c;
    }
    return digits;
}

}  // namespace webconfd
