/*
 * The phonebook records and their JSON form. Texts stay ISO-8859-1 here;
 * Request and Response convert at the wire.
 */
#include "phonebook/records.h"

#include "jsonread.h"

namespace ZEMBRA {
namespace Phonebook {

using detail::member;
using detail::readInt32;
using detail::readInt64;
using detail::readString;

namespace {

/* Key of one ISO-8859-1 byte on a telephone keypad; 0 when it has none. */
char keypadDigit(unsigned char c)
{
    static const char letters[] = "22233344455566677778889999";  // a..z
    if (c >= '0' && c <= '9') {
        return static_cast<char>(c);
    }
    if (c >= 'a' && c <= 'z') {
        return letters[c - 'a'];
    }
    if (c >= 'A' && c <= 'Z') {
        return letters[c - 'A'];
    }
    if (c < 0xC0) {
        return 0;
    }
    /* Upper and lower case of the Latin-1 letters lie 0x20 apart; only
     * 0xDF (sharp s) and 0xFF (y diaeresis) have no partner. */
    if (c == 0xDF) {
        return '7';
    }
    if (c == 0xFF) {
        return '9';
    }
    if (c >= 0xE0) {
        c = static_cast<unsigned char>(c - 0x20);
    }
    if (c <= 0xC7) {
        return '2';  // A with accents, AE, C cedilla
    }
    if (c <= 0xCB) {
        return '3';  // E
    }
    if (c <= 0xCF) {
        return '4';  // I
    }
    if (c == 0xD0) {
        return '3';  // eth, a d
    }
    if (c == 0xD7) {
        return 0;    // multiplication sign (division sign in lower case)
    }
    if (c <= 0xD8) {
        return '6';  // N tilde, O with accents, O stroke
    }
    if (c <= 0xDC) {
        return '8';  // U
    }
    if (c == 0xDD) {
        return '9';  // Y acute
    }
    return '8';      // thorn, a t
}

Json::Value arrayOf(const std::vector<ContactNumber>& numbers)
{
    Json::Value out(Json::arrayValue);
    for (const ContactNumber& n : numbers) {
        out.append(n.toJson());
    }
    return out;
}

Json::Value arrayOf(const std::vector<ContactEntry>& entries)
{
    Json::Value out(Json::arrayValue);
    for (const ContactEntry& e : entries) {
        out.append(e.toJson());
    }
    return out;
}

/* Elements of the array member `name` that are objects, each read with
 * T::fromJson; anything else reads as an empty list. */
template <typename T>
std::vector<T> listOf(const Json::Value& object, const char* name)
{
    std::vector<T> out;
    const Json::Value& list = member(object, name);
    if (!list.isArray()) {
        return out;
    }
    for (const Json::Value& element : list) {
        if (element.isObject()) {
            out.push_back(T::fromJson(element));
        }
    }
    return out;
}

}  // namespace

std::string vanityKey(const std::string& latin1Name)
{
    std::string key;
    key.reserve(latin1Name.size());
    for (char c : latin1Name) {
        char digit = keypadDigit(static_cast<unsigned char>(c));
        if (digit != 0) {
            key += digit;
        }
    }
    return key;
}

Record::~Record() = default;

/* ContactNumber */

ContactNumber::ContactNumber() : value1(0), value2(0), value3(0) {}

ContactNumber::ContactNumber(const std::string& text1, const std::string& number,
                             const std::string& text3, const std::string& text4, int32_t value1,
                             int32_t value2, int32_t value3)
    : text1(text1), number(number), text3(text3), text4(text4), value1(value1), value2(value2),
      value3(value3)
{
}

Json::Value ContactNumber::toJson() const
{
    Json::Value out(Json::objectValue);
    out["text1"] = text1;
    out["number"] = number;
    out["text3"] = text3;
    out["text4"] = text4;
    out["value1"] = value1;
    out["value2"] = value2;
    out["value3"] = value3;
    return out;
}

ContactNumber ContactNumber::fromJson(const Json::Value& json)
{
    return ContactNumber(readString(json, "text1"), readString(json, "number"),
                         readString(json, "text3"), readString(json, "text4"),
                         readInt32(json, "value1"), readInt32(json, "value2"),
                         readInt32(json, "value3"));
}

bool ContactNumber::operator==(const ContactNumber& other) const
{
    return text1 == other.text1 && number == other.number && text3 == other.text3 &&
           text4 == other.text4 && value1 == other.value1 && value2 == other.value2 &&
           value3 == other.value3;
}

/* ContactEntry */

ContactEntry::ContactEntry() : value(0) {}

Json::Value ContactEntry::toJson() const
{
    Json::Value out(Json::objectValue);
    out["text1"] = text1;
    out["text2"] = text2;
    out["text3"] = text3;
    out["text4"] = text4;
    out["text5"] = text5;
    out["text6"] = text6;
    out["text7"] = text7;
    out["value"] = value;
    return out;
}

ContactEntry ContactEntry::fromJson(const Json::Value& json)
{
    ContactEntry e;
    e.text1 = readString(json, "text1");
    e.text2 = readString(json, "text2");
    e.text3 = readString(json, "text3");
    e.text4 = readString(json, "text4");
    e.text5 = readString(json, "text5");
    e.text6 = readString(json, "text6");
    e.text7 = readString(json, "text7");
    e.value = readInt32(json, "value");
    return e;
}

bool ContactEntry::operator==(const ContactEntry& other) const
{
    return text1 == other.text1 && text2 == other.text2 && text3 == other.text3 &&
           text4 == other.text4 && text5 == other.text5 && text6 == other.text6 &&
           text7 == other.text7 && value == other.value;
}

/* Contact */

Contact::Contact() = default;

Contact::Contact(const std::string& backend, const std::string& uid, const std::string& text3,
                 const std::string& firstName, const std::string& lastName,
                 const std::string& company, const boost::optional<std::string>& optional)
    : backend(backend), uid(uid), text3(text3), firstName(firstName), lastName(lastName),
      company(company), optionalText(optional)
{
    calcVanity();
}

Contact::~Contact() = default;

void Contact::calcVanity()
{
    if (!text3.empty()) {
        return;
    }
    const std::string last = vanityKey(lastName);
    const std::string first = vanityKey(firstName);
    text3 = last;
    if (!last.empty() && !first.empty()) {
        text3 += ' ';
    }
    text3 += first;
}

Json::Value Contact::toJson() const
{
    Json::Value out(Json::objectValue);
    out["backend"] = backend;
    out["uid"] = uid;
    out["text3"] = text3;
    out["firstName"] = firstName;
    out["lastName"] = lastName;
    out["company"] = company;
    out["text7"] = text7;
    out["numbers"] = arrayOf(numbers);
    out["extraText1"] = extraText1;
    out["extraText2"] = extraText2;
    out["extraText3"] = extraText3;
    out["extraText4"] = extraText4;
    out["extraText5"] = extraText5;
    out["extraText6"] = extraText6;
    out["extraText7"] = extraText7;
    out["entries"] = arrayOf(entries);
    if (optionalText) {
        out["optionalText"] = *optionalText;
    }
    return out;
}

Contact Contact::fromJson(const Json::Value& json)
{
    Contact c;
    c.backend = readString(json, "backend");
    c.uid = readString(json, "uid");
    c.text3 = readString(json, "text3");
    c.firstName = readString(json, "firstName");
    c.lastName = readString(json, "lastName");
    c.company = readString(json, "company");
    c.text7 = readString(json, "text7");
    c.numbers = listOf<ContactNumber>(json, "numbers");
    c.extraText1 = readString(json, "extraText1");
    c.extraText2 = readString(json, "extraText2");
    c.extraText3 = readString(json, "extraText3");
    c.extraText4 = readString(json, "extraText4");
    c.extraText5 = readString(json, "extraText5");
    c.extraText6 = readString(json, "extraText6");
    c.extraText7 = readString(json, "extraText7");
    c.entries = listOf<ContactEntry>(json, "entries");
    const Json::Value& optional = member(json, "optionalText");
    if (optional.isString()) {
        c.optionalText = optional.asString();
    }
    return c;
}

bool Contact::operator==(const Contact& other) const
{
    return backend == other.backend && uid == other.uid && text3 == other.text3 &&
           firstName == other.firstName && lastName == other.lastName &&
           company == other.company && text7 == other.text7 && numbers == other.numbers &&
           extraText1 == other.extraText1 && extraText2 == other.extraText2 &&
           extraText3 == other.extraText3 && extraText4 == other.extraText4 &&
           extraText5 == other.extraText5 && extraText6 == other.extraText6 &&
           extraText7 == other.extraText7 && entries == other.entries &&
           optionalText == other.optionalText;
}

/* Event */

Event::Event() : kind(Missed), timestamp(0), duration(0) {}

Event::Event(const std::string& backend, const std::string& uid, int32_t kind,
             const std::string& number, const std::string& name, int64_t timestamp,
             int32_t duration)
    : backend(backend), uid(uid), kind(kind), number(number), name(name), timestamp(timestamp),
      duration(duration)
{
}

Event::~Event() = default;

Json::Value Event::toJson() const
{
    Json::Value out(Json::objectValue);
    out["backend"] = backend;
    out["uid"] = uid;
    out["kind"] = kind;
    out["number"] = number;
    out["name"] = name;
    out["timestamp"] = static_cast<Json::Int64>(timestamp);
    out["duration"] = duration;
    return out;
}

Event Event::fromJson(const Json::Value& json)
{
    return Event(readString(json, "backend"), readString(json, "uid"), readInt32(json, "kind"),
                 readString(json, "number"), readString(json, "name"),
                 readInt64(json, "timestamp"), readInt32(json, "duration"));
}

bool Event::operator==(const Event& other) const
{
    return backend == other.backend && uid == other.uid && kind == other.kind &&
           number == other.number && name == other.name && timestamp == other.timestamp &&
           duration == other.duration;
}

/* Folder */

Folder::Folder() : count(0) {}

Folder::Folder(const std::string& backend, const std::string& uid, const std::string& name,
               int32_t count)
    : backend(backend), uid(uid), name(name), count(count)
{
}

Folder::~Folder() = default;

Json::Value Folder::toJson() const
{
    Json::Value out(Json::objectValue);
    out["backend"] = backend;
    out["uid"] = uid;
    out["name"] = name;
    out["count"] = count;
    return out;
}

Folder Folder::fromJson(const Json::Value& json)
{
    return Folder(readString(json, "backend"), readString(json, "uid"), readString(json, "name"),
                  readInt32(json, "count"));
}

bool Folder::operator==(const Folder& other) const
{
    return backend == other.backend && uid == other.uid && name == other.name &&
           count == other.count;
}

}  // namespace Phonebook
}  // namespace ZEMBRA
