/*
 * The phonebook records and their JSON form. Texts stay ISO-8859-1 here;
 * Request and Response convert at the wire.
 */
#include "phonebook/records.h"

#include <cstddef>
#include <cstdint>

#include "jsonread.h"
#include "wire.h"

namespace ZEMBRA {
namespace Phonebook {


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

/* How a record's texts are taken: as they are (a record's own JSON holds
 * ISO-8859-1 already), or converted from the wire's UTF-8. */
struct AsIs {
    static void take(const Json::Value& v, std::string* out)
    {
        const char* begin = nullptr;
        const char* end = nullptr;
        v.getString(&begin, &end);
        out->assign(begin, end);
    }
};

struct FromUtf8 {
    static void take(const Json::Value& v, std::string* out)
    {
        const char* begin = nullptr;
        const char* end = nullptr;
        v.getString(&begin, &end);
        detail::utf8ToLatin1(begin, static_cast<std::size_t>(end - begin), out);
    }
};

/* One member a record reads: its name, and how its value is read into the
 * record. */
template <typename R>
struct MemberReader {
    const char* name;
    void (*read)(const Json::Value& value, R* record);
};

/* The order of an object's keys in jsoncpp (a std::map of its keys):
 * bytewise, a prefix before what it begins. */
constexpr int compareNames(const char* a, std::size_t aLength, const char* b, std::size_t bLength)
{
    for (std::size_t i = 0; i < aLength && i < bLength; ++i) {
        const unsigned char x = static_cast<unsigned char>(a[i]);
        const unsigned char y = static_cast<unsigned char>(b[i]);
        if (x != y) {
            return x < y ? -1 : 1;
        }
    }
    return aLength < bLength ? -1 : aLength > bLength ? 1 : 0;
}

constexpr std::size_t nameLength(const char* name)
{
    std::size_t n = 0;
    while (name[n] != '\0') {
        ++n;
    }
    return n;
}

template <typename R, std::size_t N>
constexpr bool inKeyOrder(const MemberReader<R> (&readers)[N])
{
    for (std::size_t i = 1; i < N; ++i) {
        if (compareNames(readers[i - 1].name, nameLength(readers[i - 1].name), readers[i].name,
                         nameLength(readers[i].name)) >= 0) {
            return false;
        }
    }
    return true;
}

/* Reads the members of `json` that `readers` name, in one walk over both
 * lists, which come in the same order: each key is compared with a name or
 * two instead of being looked up from the root of the tree for every name.
 * Members not named are passed over; members missing, or of the wrong
 * type, leave the record's default. */
template <typename R, std::size_t N>
void readMembers(const Json::Value& json, const MemberReader<R> (&readers)[N], R* record)
{
    if (!json.isObject()) {
        return;
    }
    std::size_t next = 0;
    for (auto it = json.begin(); it != json.end() && next < N; ++it) {
        const char* end = nullptr;
        const char* key = it.memberName(&end);
        const std::size_t keyLength = static_cast<std::size_t>(end - key);
        int order = -1;
        while (next < N &&
               (order = compareNames(readers[next].name, nameLength(readers[next].name), key, keyLength)) < 0) {
            ++next;
        }
        if (next < N && order == 0) {
            readers[next].read(*it, record);
            ++next;
        }
    }
}

template <typename Text, typename R, std::string R::*Member>
void textMember(const Json::Value& v, R* record)
{
    if (v.isString()) {
        Text::take(v, &(record->*Member));
    }
}

template <typename R, int32_t R::*Member>
void int32Member(const Json::Value& v, R* record)
{
    record->*Member = detail::int32Of(v);
}

/* The readers behind each record's fromJson, filling a default-constructed
 * record. */
template <typename Text>
void read(const Json::Value& json, ContactNumber* n)
{
    static constexpr MemberReader<ContactNumber> readers[] = {
        {"number", textMember<Text, ContactNumber, &ContactNumber::number>},
        {"text1", textMember<Text, ContactNumber, &ContactNumber::text1>},
        {"text3", textMember<Text, ContactNumber, &ContactNumber::text3>},
        {"text4", textMember<Text, ContactNumber, &ContactNumber::text4>},
        {"value1", int32Member<ContactNumber, &ContactNumber::value1>},
        {"value2", int32Member<ContactNumber, &ContactNumber::value2>},
        {"value3", int32Member<ContactNumber, &ContactNumber::value3>},
    };
    static_assert(inKeyOrder(readers), "readers must come in key order");
    readMembers(json, readers, n);
}

template <typename Text>
void read(const Json::Value& json, ContactEntry* e)
{
    static constexpr MemberReader<ContactEntry> readers[] = {
        {"text1", textMember<Text, ContactEntry, &ContactEntry::text1>},
        {"text2", textMember<Text, ContactEntry, &ContactEntry::text2>},
        {"text3", textMember<Text, ContactEntry, &ContactEntry::text3>},
        {"text4", textMember<Text, ContactEntry, &ContactEntry::text4>},
        {"text5", textMember<Text, ContactEntry, &ContactEntry::text5>},
        {"text6", textMember<Text, ContactEntry, &ContactEntry::text6>},
        {"text7", textMember<Text, ContactEntry, &ContactEntry::text7>},
        {"value", int32Member<ContactEntry, &ContactEntry::value>},
    };
    static_assert(inKeyOrder(readers), "readers must come in key order");
    readMembers(json, readers, e);
}

/* The elements of an array that are objects, each read as a T; anything
 * else reads as an empty list. */
template <typename T, typename Text>
std::vector<T> listOf(const Json::Value& list)
{
    std::vector<T> out;
    if (!list.isArray()) {
        return out;
    }
    out.reserve(list.size());
    for (const Json::Value& element : list) {
        if (element.isObject()) {
            T item;
            read<Text>(element, &item);
            out.push_back(std::move(item));
        }
    }
    return out;
}

template <typename Text>
void read(const Json::Value& json, Contact* c)
{
    static constexpr MemberReader<Contact> readers[] = {
        {"backend", textMember<Text, Contact, &Contact::backend>},
        {"company", textMember<Text, Contact, &Contact::company>},
        {"entries", [](const Json::Value& v, Contact* r) { r->entries = listOf<ContactEntry, Text>(v); }},
        {"extraText1", textMember<Text, Contact, &Contact::extraText1>},
        {"extraText2", textMember<Text, Contact, &Contact::extraText2>},
        {"extraText3", textMember<Text, Contact, &Contact::extraText3>},
        {"extraText4", textMember<Text, Contact, &Contact::extraText4>},
        {"extraText5", textMember<Text, Contact, &Contact::extraText5>},
        {"extraText6", textMember<Text, Contact, &Contact::extraText6>},
        {"extraText7", textMember<Text, Contact, &Contact::extraText7>},
        {"firstName", textMember<Text, Contact, &Contact::firstName>},
        {"lastName", textMember<Text, Contact, &Contact::lastName>},
        {"numbers", [](const Json::Value& v, Contact* r) { r->numbers = listOf<ContactNumber, Text>(v); }},
        {"optionalText",
         [](const Json::Value& v, Contact* r) {
             if (v.isString()) {
                 std::string value;
                 Text::take(v, &value);
                 r->optionalText = std::move(value);
             }
         }},
        {"text3", textMember<Text, Contact, &Contact::text3>},
        {"text7", textMember<Text, Contact, &Contact::text7>},
        {"uid", textMember<Text, Contact, &Contact::uid>},
    };
    static_assert(inKeyOrder(readers), "readers must come in key order");
    readMembers(json, readers, c);
}

template <typename Text>
void read(const Json::Value& json, Event* e)
{
    static constexpr MemberReader<Event> readers[] = {
        {"backend", textMember<Text, Event, &Event::backend>},
        {"duration", int32Member<Event, &Event::duration>},
        {"kind", int32Member<Event, &Event::kind>},
        {"name", textMember<Text, Event, &Event::name>},
        {"number", textMember<Text, Event, &Event::number>},
        {"timestamp", [](const Json::Value& v, Event* r) { r->timestamp = detail::int64Of(v); }},
        {"uid", textMember<Text, Event, &Event::uid>},
    };
    static_assert(inKeyOrder(readers), "readers must come in key order");
    readMembers(json, readers, e);
}

template <typename Text>
void read(const Json::Value& json, Folder* f)
{
    static constexpr MemberReader<Folder> readers[] = {
        {"backend", textMember<Text, Folder, &Folder::backend>},
        {"count", int32Member<Folder, &Folder::count>},
        {"name", textMember<Text, Folder, &Folder::name>},
        {"uid", textMember<Text, Folder, &Folder::uid>},
    };
    static_assert(inKeyOrder(readers), "readers must come in key order");
    readMembers(json, readers, f);
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
    ContactNumber n;
    read<AsIs>(json, &n);
    return n;
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
    read<AsIs>(json, &e);
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
    read<AsIs>(json, &c);
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
    : uid(uid), backend(backend), kind(kind), number(number), name(name), timestamp(timestamp),
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
    Event e;
    read<AsIs>(json, &e);
    return e;
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
    Folder f;
    read<AsIs>(json, &f);
    return f;
}

bool Folder::operator==(const Folder& other) const
{
    return backend == other.backend && uid == other.uid && name == other.name &&
           count == other.count;
}

namespace detail {

void readWire(const Json::Value& utf8, Contact* out)
{
    read<FromUtf8>(utf8, out);
}

void readWire(const Json::Value& utf8, Event* out)
{
    read<FromUtf8>(utf8, out);
}

void readWire(const Json::Value& utf8, Folder* out)
{
    read<FromUtf8>(utf8, out);
}

}  // namespace detail

}  // namespace Phonebook
}  // namespace ZEMBRA
