/*
 * JSON text in and out, for requests, replies, stored extras and import
 * lines alike.
 */
#ifndef WEBCONFD_JSONTEXT_H
#define WEBCONFD_JSONTEXT_H

#include <string>

#include <json/value.h>

namespace webconfd {

/* One line without blanks; characters outside ASCII as \u escapes. */
std::string compactJson(const Json::Value& value);

/* Parses untrusted text: false, with a one-line reason, for anything that
 * is not one JSON value (nesting too deep included). Never throws. */
bool parseJson(const std::string& text, Json::Value* out, std::string* error);

}  // namespace webconfd

#endif
