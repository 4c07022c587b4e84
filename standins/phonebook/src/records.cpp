/*
 * The phonebook records and their JSON form. Texts stay ISO-8859-1 here;
 * Request and Response convert at the wire.
 */
#include "phonebook/records.h"

#include "phonebook/standin.h"

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
        out.append(numberToJson(n));
    }
    return out;
}

Json::Value arrayOf(const std::vector<ContactEntry>& entries)
{
    Json::Value out(Json::arrayValue);
    for (const ContactEntry& e : entries) {
        out.append(entryToJson(e));
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
void read(const Json::Value& json, Library::EntryData* e)
{
    using ContactEntry = Library::EntryData;
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

template <typename Text>
void read(const Json::Value& json, ContactEntry* e)
{
    read<Text>(json, &Library::data(*e));
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
void read(const Json::Value& json, Event* event)
{
    using Event = Library::EventData;
    Event* e = &Library::data(*event);
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
void read(const Json::Value& json, Folder* folder)
{
    using Folder = Library::FolderData;
    Folder* f = &Library::data(*folder);
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

namespace not_declared {
Record::~Record() = default;
}

/* ContactNumber */

ContactNumber numberFromJson(const Json::Value& json)
{
    ContactNumber n;
    read<AsIs>(json, &n);
    return n;
}

Json::Value numberToJson(const ContactNumber& n)
{
    Json::Value out(Json::objectValue);
    out["text1"] = n.text1;
    out["number"] = n.number;
    out["text3"] = n.text3;
    out["text4"] = n.text4;
    out["value1"] = n.value1;
    out["value2"] = n.value2;
    out["value3"] = n.value3;
    return out;
}

bool operator==(const ContactNumber& a, const ContactNumber& b)
{
    return a.text1 == b.text1 && a.number == b.number && a.text3 == b.text3 && a.text4 == b.text4 &&
           a.value1 == b.value1 && a.value2 == b.value2 && a.value3 == b.value3;
}

/* ContactEntry */

Json::Value entryToJson(const ContactEntry& entry)
{
    const Library::EntryData& e = Library::data(entry);
    Json::Value out(Json::objectValue);
    out["text1"] = e.text1;
    out["text2"] = e.text2;
    out["text3"] = e.text3;
    out["text4"] = e.text4;
    out["text5"] = e.text5;
    out["text6"] = e.text6;
    out["text7"] = e.text7;
    out["value"] = e.value;
    return out;
}

bool operator==(const ContactEntry& entryA, const ContactEntry& entryB)
{
    const Library::EntryData& a = Library::data(entryA);
    const Library::EntryData& b = Library::data(entryB);
    return a.text1 == b.text1 && a.text2 == b.text2 && a.text3 == b.text3 && a.text4 == b.text4 &&
           a.text5 == b.text5 && a.text6 == b.text6 && a.text7 == b.text7 && a.value == b.value;
}

/* Contact */

Contact::Contact() = default;

Contact::Contact(const std::string& backend, const std::string& uid, const std::string& text3,
                 const std::string& firstName, const std::string& lastName,
                 const std::string& company, boost::optional<std::string> optionalText)
    : backend(backend), uid(uid), text3(text3), firstName(firstName), lastName(lastName),
      company(company), optionalText(std::move(optionalText))
{
    calcVanity();
}

Contact::Contact(const Contact& other) = default;
Contact& Contact::operator=(const Contact& other) = default;
Contact::~Contact() = default;

std::string Contact::getUid() const
{
    return uid;
}

std::string Contact::getFirstName() const
{
    return firstName;
}

std::string Contact::getLastName() const
{
    return lastName;
}

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

Contact contactFromJson(const Json::Value& json)
{
    Contact c;
    read<AsIs>(json, &c);
    return c;
}

bool operator==(const Contact& a, const Contact& b)
{
    return a.backend == b.backend && a.uid == b.uid && a.text3 == b.text3 && a.firstName == b.firstName &&
           a.lastName == b.lastName && a.company == b.company && a.text7 == b.text7 && a.numbers == b.numbers &&
           a.extraText1 == b.extraText1 && a.extraText2 == b.extraText2 && a.extraText3 == b.extraText3 &&
           a.extraText4 == b.extraText4 && a.extraText5 == b.extraText5 && a.extraText6 == b.extraText6 &&
           a.extraText7 == b.extraText7 && a.entries == b.entries && a.optionalText == b.optionalText;
}

/* Event */

Event::Event() = default;
Event::Event(const Event& other) = default;
Event& Event::operator=(const Event& other) = default;
Event::~Event() = default;

std::string Event::getUid() const
{
    return data_.uid;
}

Json::Value Event::toJson() const
{
    Json::Value out(Json::objectValue);
    out["backend"] = data_.backend;
    out["uid"] = data_.uid;
    out["kind"] = data_.kind;
    out["number"] = data_.number;
    out["name"] = data_.name;
    out["timestamp"] = static_cast<Json::Int64>(data_.timestamp);
    out["duration"] = data_.duration;
    return out;
}

Event makeEvent(const std::string& backend, const std::string& uid, int32_t kind, const std::string& number,
                const std::string& name, int64_t timestamp, int32_t duration)
{
    Event e;
    Library::data(e) = {uid, backend, kind, number, name, timestamp, duration};
    return e;
}

Event eventFromJson(const Json::Value& json)
{
    Event e;
    read<AsIs>(json, &e);
    return e;
}

bool operator==(const Event& eventA, const Event& eventB)
{
    const Library::EventData& a = Library::data(eventA);
    const Library::EventData& b = Library::data(eventB);
    return a.backend == b.backend && a.uid == b.uid && a.kind == b.kind && a.number == b.number &&
           a.name == b.name && a.timestamp == b.timestamp && a.duration == b.duration;
}

/* Folder */

Folder::Folder() = default;
Folder::Folder(const Folder& other) = default;
Folder& Folder::operator=(const Folder& other) = default;
Folder::~Folder() = default;

Json::Value Folder::toJson() const
{
    Json::Value out(Json::objectValue);
    out["backend"] = data_.backend;
    out["uid"] = data_.uid;
    out["name"] = data_.name;
    out["count"] = data_.count;
    return out;
}

Folder makeFolder(const std::string& backend, const std::string& uid, const std::string& name, int32_t count)
{
    Folder f;
    Library::data(f) = {backend, uid, name, count};
    return f;
}

Folder folderFromJson(const Json::Value& json)
{
    Folder f;
    read<AsIs>(json, &f);
    return f;
}

bool operator==(const Folder& folderA, const Folder& folderB)
{
    const Library::FolderData& a = Library::data(folderA);
    const Library::FolderData& b = Library::data(folderB);
    return a.backend == b.backend && a.uid == b.uid && a.name == b.name && a.count == b.count;
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
