/*
 * Records of the phonebook library: contacts with their numbers and entries,
 * call-log events and folders, as the library declares what its users rely
 * on. They are value classes; texts inside them are ISO-8859-1 bytes. What
 * our stand-in adds is below "stand-in extras" lines.
 *
 * toJson() gives a record's JSON form with its texts still in ISO-8859-1;
 * the conversion to UTF-8 happens only where JSON leaves or enters the
 * firmware (Request::toJson, Response::fromJson). docs/phonebook-json.md
 * lists the members.
 */
#ifndef PHONEBOOK_RECORDS_H
#define PHONEBOOK_RECORDS_H

#include <cstdint>
#include <string>
#include <vector>

#include <boost/optional.hpp>
#include <json/value.h>

namespace ZEMBRA {
namespace Phonebook {

/* Stand-in extra: the common base of everything a reply can carry, so that
 * a reply's items can be held in one list. The library's type of the items
 * has no name its users may rely on. */
class Record {
public:
    virtual ~Record();
    virtual Json::Value toJson() const = 0;
};

class ContactNumber {
public:
    ContactNumber();

    std::string text1;
    std::string number;   /* the dial string */
    std::string text3;
    std::string text4;
    int32_t value1;
    int32_t value2;
    int32_t value3;

    /* ---- stand-in extras, not part of the phonebook library ---------- */
    ContactNumber(const std::string& text1, const std::string& number, const std::string& text3,
                  const std::string& text4, int32_t value1, int32_t value2, int32_t value3);
    Json::Value toJson() const;
    static ContactNumber fromJson(const Json::Value& json);
    bool operator==(const ContactNumber& other) const;
};

class ContactEntry {
public:
    ContactEntry();

    std::string text1;
    std::string text2;
    std::string text3;
    std::string text4;
    std::string text5;
    std::string text6;
    std::string text7;
    int32_t value;

    /* ---- stand-in extras, not part of the phonebook library ---------- */
    Json::Value toJson() const;
    static ContactEntry fromJson(const Json::Value& json);
    bool operator==(const ContactEntry& other) const;
};

class Contact : public Record {
public:
    Contact();
    /* Copies the six texts into the first six members, engages optionalText
     * when `optional` holds a value, then calls calcVanity(). */
    Contact(const std::string& backend, const std::string& uid, const std::string& text3,
            const std::string& firstName, const std::string& lastName, const std::string& company,
            const boost::optional<std::string>& optional);
    Contact(const Contact&) = default;
    Contact& operator=(const Contact&) = default;
    ~Contact() override;

    Json::Value toJson() const override;

    std::string getUid() const { return uid; }
    std::string getFirstName() const { return firstName; }
    std::string getLastName() const { return lastName; }

    /* Fills text3 with the keypad digits of the names (vanityKey of last
     * name and first name) when text3 is empty; writes nothing else. */
    void calcVanity();

    std::string backend;
    std::string uid;
    std::string text3;
    std::string firstName;
    std::string lastName;
    std::string company;
    std::string text7;
    std::vector<ContactNumber> numbers;
    std::string extraText1;
    std::string extraText2;
    std::string extraText3;
    std::string extraText4;
    std::string extraText5;
    std::string extraText6;
    std::string extraText7;
    std::vector<ContactEntry> entries;
    boost::optional<std::string> optionalText;

    /* ---- stand-in extras, not part of the phonebook library ---------- */
    /* Builds a contact from its JSON form; missing members or members of the
     * wrong type leave the member at its default. Never throws. */
    static Contact fromJson(const Json::Value& json);
    bool operator==(const Contact& other) const;
};

/* One call-log event. Its users rely only on its uid and toJson(). */
class Event : public Record {
public:
    ~Event() override;
    Json::Value toJson() const override;
    std::string getUid() const { return uid; }

    std::string uid;

    /* ---- stand-in extras, not part of the phonebook library ---------- */
    enum Kind { Missed = 0, Incoming = 1, Outgoing = 2 };

    Event();
    Event(const std::string& backend, const std::string& uid, int32_t kind, const std::string& number,
          const std::string& name, int64_t timestamp, int32_t duration);
    static Event fromJson(const Json::Value& json);
    bool operator==(const Event& other) const;

    std::string backend;
    int32_t kind;        /* Kind */
    std::string number;  /* the remote party's number */
    std::string name;    /* the remote party's name, if known */
    int64_t timestamp;   /* start, seconds since 1970-01-01 UTC */
    int32_t duration;    /* seconds */
};

/* A folder of the phonebook (a group of contacts). Opaque to its users:
 * everything in it is the stand-in's. */
class Folder : public Record {
public:
    /* ---- stand-in extras, not part of the phonebook library ---------- */
    Folder();
    Folder(const std::string& backend, const std::string& uid, const std::string& name, int32_t count);
    ~Folder() override;

    Json::Value toJson() const override;
    static Folder fromJson(const Json::Value& json);
    bool operator==(const Folder& other) const;

    std::string backend;
    std::string uid;
    std::string name;
    int32_t count;       /* contacts in the folder */
};

/* Stand-in extra. Keypad digits of a name for vanity search: letters map to
 * the digit of their key (ITU E.161: abc 2, def 3, ghi 4, jkl 5, mno 6,
 * pqrs 7, tuv 8, wxyz 9), ISO-8859-1 letters to the key of their base letter
 * (ä 2, ö 6, ü 8, ß 7, é 3, ...), digits stay; everything else is dropped. */
std::string vanityKey(const std::string& latin1Name);

}  // namespace Phonebook
}  // namespace ZEMBRA

#endif
