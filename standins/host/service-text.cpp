/*
 * Reading and writing the service console's lines; see service-text.h.
 */
#include "service-text.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <sstream>

#include <json/reader.h>
#include <json/writer.h>

#include "phonebook/standin.h"

namespace host {

namespace {

using ZEMBRA::Phonebook::Library;

const char* const kModeNames[] = {"ID", "Number", "NameAlpha", "NameVanity", "Index", "EventRange", "FolderList"};
const char* const kEventKinds[] = {"missed", "incoming", "outgoing"};

std::string trimmed(const std::string& text)
{
    const std::size_t first = text.find_first_not_of(' ');
    if (first == std::string::npos)
        return "";
    return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

/* A whole number in [low, high], decimal or 0x hexadecimal. */
bool readNumber(const std::string& text, long long low, long long high, long long* out)
{
    if (text.empty() || text.size() > 20)
        return false;
    const bool hex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    errno = 0;
    char* end = nullptr;
    *out = std::strtoll(text.c_str(), &end, hex ? 16 : 10);
    return errno == 0 && *end == '\0' && *out >= low && *out <= high;
}

}  // namespace

bool parseJson(const std::string& text, Json::Value* out, std::string* error)
{
    Json::CharReaderBuilder builder;
    builder["failIfExtra"] = true;
    builder["stackLimit"] = 100;
    std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    std::string why;
    if (reader->parse(text.data(), text.data() + text.size(), out, &why))
        return true;
    // jsoncpp says where on a line of its own; one line is enough here.
    while (!why.empty() && (why.back() == '\n' || why.back() == ' '))
        why.pop_back();
    for (char& c : why)
        if (c == '\n')
            c = ' ';
    *error = "not JSON: " + why;
    return false;
}

bool valueFromText(const std::string& text, Json::Value* out, std::string* error)
{
    if (!text.empty() && text[0] == '=')
        return parseJson(text.substr(1), out, error);
    if (!text.empty() && (text[0] == '{' || text[0] == '[' || text[0] == '"'))
        return parseJson(text, out, error);
    *out = Json::Value(text);
    return true;
}

bool parseSearch(const std::string& rest, SearchSettings* out, std::string* error)
{
    std::size_t at = 0;
    for (;;) {
        at = rest.find_first_not_of(' ', at);
        if (at == std::string::npos)
            break;
        const std::size_t end = std::min(rest.find(' ', at), rest.size());
        const std::string word = rest.substr(at, end - at);
        const std::size_t eq = word.find('=');
        if (eq == std::string::npos || eq == 0)
            break;   // the value begins here
        const std::string key = word.substr(0, eq), text = word.substr(eq + 1);
        long long n = 0;
        if (key == "offset" || key == "size") {
            if (!readNumber(text, INT_MIN, INT_MAX, &n)) {
                *error = key + "= wants a whole number, not " + quoted(text);
                return false;
            }
            (key == "offset" ? out->offset : out->size) = static_cast<int>(n);
        } else if (key == "best") {
            if (text != "0" && text != "1") {
                *error = "best= wants 0 or 1, not " + quoted(text);
                return false;
            }
            out->bestMatchOnly = text == "1";
        } else if (key == "primitive") {
            if (!readNumber(text, 0, UINT32_MAX, &n)) {
                *error = "primitive= wants a number from 0 to 0xFFFFFFFF, not " + quoted(text);
                return false;
            }
            out->requestPrimitive = static_cast<uint32_t>(n);
        } else if (key == "user") {
            out->userId = text;
        } else if (key == "source") {
            out->sourceAddress = text;
        } else {
            break;   // a value that holds '=', such as a name
        }
        at = end;
    }
    return valueFromText(at == std::string::npos ? "" : trimmed(rest.substr(at)), &out->value, error);
}

std::string modeName(int mode)
{
    return mode >= 0 && mode <= 6 ? kModeNames[mode] : "mode " + std::to_string(mode);
}

std::string describeSearch(const SearchSettings& s)
{
    const SearchSettings usual;
    std::string text = modeName(s.mode) + " " + jsonText(s.value);
    if (s.offset != usual.offset)
        text += " offset " + std::to_string(s.offset);
    if (s.size != usual.size)
        text += " size " + std::to_string(s.size);
    if (s.userId != usual.userId)
        text += " user " + quoted(s.userId);
    if (s.bestMatchOnly)
        text += " best";
    if (s.sourceAddress != usual.sourceAddress)
        text += " source " + quoted(s.sourceAddress);
    if (s.requestPrimitive != usual.requestPrimitive) {
        char hex[16];
        std::snprintf(hex, sizeof hex, "0x%08lX", static_cast<unsigned long>(s.requestPrimitive));
        text += std::string(" primitive ") + hex;
    }
    return text;
}

std::string quoted(const std::string& latin1)
{
    std::string out = "\"";
    for (const char c : latin1) {
        const unsigned char b = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            out += '\\';
            out += c;
        } else if (b < 0x20 || (b >= 0x7F && b < 0xA0)) {
            char hex[5];
            std::snprintf(hex, sizeof hex, "\\x%02X", b);
            out += hex;
        } else {
            out += c;
        }
    }
    return out + "\"";
}

std::string jsonText(const Json::Value& value)
{
    if (value.isString())
        return quoted(value.asString());
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    return Json::writeString(builder, value);
}

std::string contactLine(const ZEMBRA::Phonebook::Contact& c)
{
    std::string line = "contact uid " + quoted(c.uid) + " name " + quoted(c.lastName) + " " + quoted(c.firstName);
    if (!c.company.empty())
        line += " company " + quoted(c.company);
    if (!c.numbers.empty()) {
        line += " numbers";
        for (const ZEMBRA::Phonebook::ContactNumber& n : c.numbers)
            line += " " + quoted(n.number);
    }
    return line;
}

std::string eventLine(const ZEMBRA::Phonebook::Event& event)
{
    const Library::EventData& e = Library::data(event);
    std::string line = "event uid " + quoted(e.uid) + " ";
    line += e.kind >= 0 && e.kind <= 2 ? kEventKinds[e.kind] : "kind " + std::to_string(e.kind);
    line += " time " + std::to_string(e.timestamp);
    // 32-bit time_t cannot hold every timestamp: those keep the number only.
    const std::time_t t = static_cast<std::time_t>(e.timestamp);
    std::tm tm;
    char date[32];
    if (static_cast<int64_t>(t) == e.timestamp && gmtime_r(&t, &tm) != nullptr &&
        std::strftime(date, sizeof date, " (%Y-%m-%d %H:%M:%S UTC)", &tm) > 0)
        line += date;
    return line + " duration " + std::to_string(e.duration) + " number " + quoted(e.number) + " name " +
           quoted(e.name);
}

std::string folderLine(const ZEMBRA::Phonebook::Folder& folder)
{
    const Library::FolderData& f = Library::data(folder);
    return "folder uid " + quoted(f.uid) + " name " + quoted(f.name) + " contacts " + std::to_string(f.count);
}

}  // namespace host
