/*
 * The phonebook library's records: contacts with their numbers and entries,
 * call-log events and folders. Value classes; their texts are ISO-8859-1
 * bytes.
 *
 * What the library leaves to itself (an event's and a folder's members, the
 * members of a contact entry) is private; the library's own code reaches it
 * as the friend Library. toJson() gives a record's JSON form with its texts
 * still in ISO-8859-1 (docs/phonebook-json.md lists the members).
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

namespace not_declared {
/* The common type of the records a reply carries: the library has it but
 * gives it no name its users may spell. */
class Record {
public:
    virtual ~Record();
    virtual Json::Value toJson() const = 0;
};
}  // namespace not_declared

class ContactNumber {
public:
    std::string text1;
    std::string number;   /* the dial string */
    std::string text3;
    std::string text4;
    int32_t value1 = 0;
    int32_t value2 = 0;
    int32_t value3 = 0;
};

/* Seven texts and a number that the library's users only copy. */
class ContactEntry {
private:
    friend class Library;
    struct Data {
        std::string text1, text2, text3, text4, text5, text6, text7;
        int32_t value = 0;
    } data_;
};

class Contact : public not_declared::Record {
public:
    Contact();
    /* Copies the six texts into the first six members, engages optionalText
     * when `optionalText` holds a value, then calls calcVanity(). */
    Contact(const std::string& backend, const std::string& uid, const std::string& text3,
            const std::string& firstName, const std::string& lastName, const std::string& company,
            boost::optional<std::string> optionalText);
    Contact(const Contact& other);
    Contact& operator=(const Contact& other);
    ~Contact() override;

    Json::Value toJson() const override;

    std::string getUid() const;
    std::string getFirstName() const;
    std::string getLastName() const;
    /* Fills text3 with the keypad digits of the names when it is empty. */
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
};

/* One call-log event. Its users know only its uid and its JSON form. */
class Event : public not_declared::Record {
public:
    Event();
    Event(const Event& other);
    Event& operator=(const Event& other);
    ~Event() override;

    Json::Value toJson() const override;
    std::string getUid() const;

private:
    friend class Library;
    struct Data {
        std::string uid;
        std::string backend;
        int32_t kind = 0;        /* missed 0, incoming 1, outgoing 2 */
        std::string number;      /* the remote party's number */
        std::string name;        /* the remote party's name, if known */
        int64_t timestamp = 0;   /* start, seconds since 1970-01-01 UTC */
        int32_t duration = 0;    /* seconds */
    } data_;
};

/* A folder of the phonebook (a group of contacts); opaque to its users. */
class Folder : public not_declared::Record {
public:
    Folder();
    Folder(const Folder& other);
    Folder& operator=(const Folder& other);
    ~Folder() override;

    Json::Value toJson() const override;

private:
    friend class Library;
    struct Data {
        std::string backend;
        std::string uid;
        std::string name;
        int32_t count = 0;       /* contacts in the folder */
    } data_;
};

}  // namespace Phonebook
}  // namespace ZEMBRA

#endif
