/*
 * Tolerant readers for JSON that arrives from outside. jsoncpp's as*()
 * conversions throw on a wrong type or an out-of-range number, so every
 * member is checked before it is converted; anything that does not fit
 * reads as the given default.
 */
#ifndef PHONEBOOK_SRC_JSONREAD_H
#define PHONEBOOK_SRC_JSONREAD_H

#include <cstdint>
#include <string>

#include <json/value.h>

namespace ZEMBRA {
namespace Phonebook {
namespace detail {

/* Only numbers written without fraction or exponent count as integers:
 * jsoncpp would accept 5.0 as an int, the wire form never has it. */
inline bool isWholeNumber(const Json::Value& v)
{
    return v.type() == Json::intValue || v.type() == Json::uintValue;
}

/* The member `name` of `object`, or null when `object` is no object or
 * lacks it. Never inserts. */
inline const Json::Value& member(const Json::Value& object, const char* name)
{
    static const Json::Value none;
    if (!object.isObject()) {
        return none;
    }
    const Json::Value* found = object.find(name, name + std::char_traits<char>::length(name));
    return found ? *found : none;
}

inline std::string readString(const Json::Value& object, const char* name)
{
    const Json::Value& v = member(object, name);
    return v.isString() ? v.asString() : std::string();
}

inline int32_t int32Of(const Json::Value& v)
{
    return isWholeNumber(v) && v.isInt() ? static_cast<int32_t>(v.asInt()) : 0;
}

inline int64_t int64Of(const Json::Value& v)
{
    return isWholeNumber(v) && v.isInt64() ? static_cast<int64_t>(v.asInt64()) : 0;
}

inline int32_t readInt32(const Json::Value& object, const char* name)
{
    return int32Of(member(object, name));
}

}  // namespace detail
}  // namespace Phonebook
}  // namespace ZEMBRA

#endif
