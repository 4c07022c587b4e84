/*
 * Stand-in extra, not part of the phonebook library's interface: conversion
 * between the firmware's ISO-8859-1 texts and the UTF-8 of JSON on the wire,
 * for our library, daemon and tests.
 */
#ifndef PHONEBOOK_LATIN1_H
#define PHONEBOOK_LATIN1_H

#include <string>

#include <json/value.h>

namespace ZEMBRA {
namespace Phonebook {

/* The character that stands for a letter ISO-8859-1 cannot hold, and for
 * each byte of malformed UTF-8. */
constexpr char LATIN1_REPLACEMENT = '?';

std::string latin1ToUtf8(const std::string& latin1);
std::string utf8ToLatin1(const std::string& utf8);

/* The same for every string (and object member name) inside a JSON tree. */
Json::Value latin1ToUtf8(const Json::Value& latin1);
Json::Value utf8ToLatin1(const Json::Value& utf8);

/* Converts the texts of a tree to UTF-8 where they stand, without copying
 * the tree. False, with the tree half converted, when a member name is not
 * ASCII: only a converted copy can rename a member. */
bool latin1ToUtf8InPlace(Json::Value* json);

}  // namespace Phonebook
}  // namespace ZEMBRA

#endif
