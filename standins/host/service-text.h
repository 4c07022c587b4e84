/*
 * The words and lines of the host's service console "svc" that need no
 * module: reading a search line (mode, settings, value) and a record typed
 * as JSON, and the one-line forms of delivered contacts, events and folders.
 * Texts are ISO-8859-1 bytes, as inside the firmware; every text from
 * outside is quoted with its control bytes shown as \xNN, so a line stays
 * one line and a script can compare it exactly.
 */
#ifndef HOST_SERVICE_TEXT_H
#define HOST_SERVICE_TEXT_H

#include <cstdint>
#include <string>

#include <json/value.h>

#include "phonebook/query.h"
#include "phonebook/records.h"

namespace host {

/* What a service sets in its query client before it searches. The defaults
 * are those of an ordinary service: the first 100 matches, no user, every
 * match, sent from the module's task with the phonebook request primitive
 * (replies must reach the module's task to be handled). */
struct SearchSettings {
    ZEMBRA::Phonebook::QueryMode mode = ZEMBRA::Phonebook::ID;
    Json::Value value = Json::Value("");
    int offset = 0;
    int size = 100;
    std::string userId;
    bool bestMatchOnly = false;
    std::string sourceAddress = "kivo@Local";
    uint32_t requestPrimitive = 0x00830001;
};

/* Reads "[setting=value ...] [value]" after a search word: settings
 * offset=, size=, user=, best=, source=, primitive=, then the value to the
 * end of the line (see valueFromText). False with the reason in *error. */
bool parseSearch(const std::string& rest, SearchSettings* out, std::string* error);

/* A search value as typed: text beginning with {, [ or " is JSON, and so is
 * what follows a leading =; anything else is the text itself (so "0711"
 * stays text, not the number 711). False with the reason in *error. */
bool valueFromText(const std::string& text, Json::Value* out, std::string* error);

/* One JSON value from the whole text (nothing may follow it). */
bool parseJson(const std::string& text, Json::Value* out, std::string* error);

/* The name of a query mode ("NameAlpha"), or its number. */
std::string modeName(int mode);

/* The start line's words after "#N ": mode, value and each setting that is
 * not the default, e.g. `NameAlpha "W" offset 2 size 2`. */
std::string describeSearch(const SearchSettings& settings);

/* "text" with \ and " escaped and control bytes (C0, DEL, C1) as \xNN. */
std::string quoted(const std::string& latin1);
/* A JSON value on one line: strings quoted as above, the rest compact. */
std::string jsonText(const Json::Value& value);

/* The record lines' words after "#N ". */
std::string contactLine(const ZEMBRA::Phonebook::Contact& contact);
std::string eventLine(const ZEMBRA::Phonebook::Event& event);
std::string folderLine(const ZEMBRA::Phonebook::Folder& folder);

}  // namespace host

#endif
