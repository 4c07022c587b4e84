/*
 * The phonebook library's records as their users may rely on them
 * (declarations only, see firmware-api/README.md).
 */
#ifndef FIRMWARE_PHONEBOOK_RECORDS_H
#define FIRMWARE_PHONEBOOK_RECORDS_H

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
    std::string number;
    std::string text3;
    std::string text4;
    int32_t value1;
    int32_t value2;
    int32_t value3;
};

/* Seven texts and a number that the module only copies. */
class ContactEntry {
public:
    std::string not_declared1;
    std::string not_declared2;
    std::string not_declared3;
    std::string not_declared4;
    std::string not_declared5;
    std::string not_declared6;
    std::string not_declared7;
    int32_t not_declared8;
};

class Contact : public not_declared::Record {
public:
    Contact();
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

/* Of an event its users know only the uid and the JSON form. */
class Event : public not_declared::Record {
public:
    ~Event() override;
    Json::Value toJson() const override;
    std::string getUid() const;
};

/* Opaque to its users. */
class Folder : public not_declared::Record {
};

}  // namespace Phonebook
}  // namespace ZEMBRA

#endif
