/*
 * ISO-8859-1 <-> UTF-8. Latin-1 maps one to one onto U+0000..U+00FF, so any
 * Latin-1 text survives the trip to UTF-8 and back unchanged; the way back
 * replaces what Latin-1 cannot hold with LATIN1_REPLACEMENT, and every
 * byte of malformed UTF-8 likewise, so a damaged reply still reads as text.
 */
#include "phonebook/latin1.h"

#include "wire.h"

#include <cstddef>
#include <cstdint>

namespace ZEMBRA {
namespace Phonebook {

namespace {

bool isContinuation(unsigned char c)
{
    return (c & 0xC0) == 0x80;
}

/* Decodes the well-formed sequence at p, of which `avail` bytes are left
 * (the rules of RFC 3629: no overlong forms, no surrogates, nothing above
 * U+10FFFF). Returns its length and sets *codePoint, or returns 0 when it
 * is malformed. */
std::size_t decode(const unsigned char* p, std::size_t avail, uint32_t* codePoint)
{
    const unsigned char lead = p[0];
    std::size_t length;
    uint32_t cp;
    /* The second byte's allowed range is where overlong forms, surrogates
     * and code points past U+10FFFF are ruled out. */
    unsigned char low = 0x80;
    unsigned char high = 0xBF;
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
        cp = lead & 0x1F;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        cp = lead & 0x0F;
        if (lead == 0xE0) {
            low = 0xA0;
        } else if (lead == 0xED) {
            high = 0x9F;
        }
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        cp = lead & 0x07;
        if (lead == 0xF0) {
            low = 0x90;
        } else if (lead == 0xF4) {
            high = 0x8F;
        }
    } else {
        return 0;  // stray continuation byte, C0/C1, F5..FF
    }
    if (avail < length) {
        return 0;
    }
    const unsigned char second = p[1];
    if (second < low || second > high) {
        return 0;
    }
    for (std::size_t i = 1; i < length; ++i) {
        const unsigned char c = p[i];
        if (!isContinuation(c)) {
            return 0;
        }
        cp = (cp << 6) | (c & 0x3F);
    }
    *codePoint = cp;
    return length;
}

template <typename Convert>
Json::Value convertTree(const Json::Value& in, Convert convert)
{
    switch (in.type()) {
    case Json::stringValue:
        return Json::Value(convert(in.asString()));
    case Json::arrayValue: {
        Json::Value out(Json::arrayValue);
        for (const Json::Value& element : in) {
            out.append(convertTree(element, convert));
        }
        return out;
    }
    case Json::objectValue: {
        Json::Value out(Json::objectValue);
        for (auto it = in.begin(); it != in.end(); ++it) {
            out[convert(it.name())] = convertTree(*it, convert);
        }
        return out;
    }
    default:
        return in;
    }
}

}  // namespace

std::string latin1ToUtf8(const std::string& latin1)
{
    std::string out;
    out.reserve(latin1.size() + latin1.size() / 4);
    for (char ch : latin1) {
        const unsigned char c = static_cast<unsigned char>(ch);
        if (c < 0x80) {
            out += ch;
        } else {
            out += static_cast<char>(0xC0 | (c >> 6));
            out += static_cast<char>(0x80 | (c & 0x3F));
        }
    }
    return out;
}

std::string utf8ToLatin1(const std::string& utf8)
{
    std::string out;
    detail::utf8ToLatin1(utf8.data(), utf8.size(), &out);
    return out;
}

namespace detail {

void utf8ToLatin1(const char* utf8, std::size_t size, std::string* out)
{
    const unsigned char* p = reinterpret_cast<const unsigned char*>(utf8);
    /* Most texts are ASCII: their prefix up to the first other byte goes
     * over in one copy. */
    std::size_t pos = 0;
    while (pos < size && p[pos] < 0x80) {
        ++pos;
    }
    out->assign(utf8, pos);
    if (pos == size) {
        return;
    }
    out->reserve(size);
    while (pos < size) {
        const unsigned char c = p[pos];
        if (c < 0x80) {
            *out += static_cast<char>(c);
            ++pos;
            continue;
        }
        uint32_t cp = 0;
        const std::size_t length = decode(p + pos, size - pos, &cp);
        if (length == 0) {
            /* Only the lead is consumed: the bytes after it get their own
             * verdict, which keeps one replacement per bad byte and lets
             * a good character right after a cut-off one through. */
            *out += LATIN1_REPLACEMENT;
            ++pos;
            continue;
        }
        *out += cp <= 0xFF ? static_cast<char>(cp) : LATIN1_REPLACEMENT;
        pos += length;
    }
}

}  // namespace detail

Json::Value latin1ToUtf8(const Json::Value& latin1)
{
    return convertTree(latin1, [](const std::string& s) { return latin1ToUtf8(s); });
}

Json::Value utf8ToLatin1(const Json::Value& utf8)
{
    return convertTree(utf8, [](const std::string& s) { return utf8ToLatin1(s); });
}

/* Converts the texts of a Latin-1 tree to UTF-8 where they stand. False,
 * with the tree half converted, when a member name is not ASCII: only a
 * converted copy can rename a member. */
bool latin1ToUtf8InPlace(Json::Value* json)
{
    switch (json->type()) {
    case Json::stringValue: {
        const char* begin = nullptr;
        const char* end = nullptr;
        json->getString(&begin, &end);
        for (const char* p = begin; p != end; ++p) {
            if (static_cast<unsigned char>(*p) >= 0x80) {
                *json = Json::Value(latin1ToUtf8(std::string(begin, end)));
                break;
            }
        }
        return true;
    }
    case Json::arrayValue:
    case Json::objectValue: {
        const bool object = json->type() == Json::objectValue;
        for (auto it = json->begin(); it != json->end(); ++it) {
            if (object) {
                const char* end = nullptr;
                for (const char* p = it.memberName(&end); p != end; ++p) {
                    if (static_cast<unsigned char>(*p) >= 0x80) {
                        return false;
                    }
                }
            }
            if (!latin1ToUtf8InPlace(&*it)) {
                return false;
            }
        }
        return true;
    }
    default:
        return true;
    }
}


}  // namespace Phonebook
}  // namespace ZEMBRA
