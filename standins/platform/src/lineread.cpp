/*
 * The debug terminal's word and number readers, the same in both platform
 * builds. Like the firmware's, GetString knows no buffer size: a caller with
 * a short buffer must bound the word itself.
 */
#include <climits>
#include <cstring>

#include "platform/dtm.h"

static bool isWordEnd(char c)
{
    return c == '\0' || c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

/* As the firmware's: no size, the whole word is written. */
int GetString(char* src, char* dst)
{
    std::size_t n = 0;
    if (src != nullptr) {
        while (!isWordEnd(src[n]))
            n++;
    }
    if (dst != nullptr) {
        if (n > 0)
            std::memcpy(dst, src, n);
        dst[n] = '\0';
    }
    return static_cast<int>(n);
}

int adn2i(char* src, int* value)
{
    int consumed = 0;
    long long v = 0;
    bool negative = false;

    if (value != nullptr)
        *value = 0;
    if (src == nullptr)
        return 0;
    if (src[0] == '-' || src[0] == '+') {
        negative = src[0] == '-';
        consumed = 1;
    }
    if (src[consumed] < '0' || src[consumed] > '9')
        return 0;
    while (src[consumed] >= '0' && src[consumed] <= '9') {
        if (v <= static_cast<long long>(INT_MAX) + 1)
            v = v * 10 + (src[consumed] - '0');
        consumed++;
    }
    if (negative)
        v = -v;
    if (v > INT_MAX)
        v = INT_MAX;
    if (v < INT_MIN)
        v = INT_MIN;
    if (value != nullptr)
        *value = static_cast<int>(v);
    return consumed;
}
