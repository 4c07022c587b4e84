/*
 * One record per line: {"contact": {...}}, {"event": {...}} or
 * {"folder": {..., "members": ["uid", ...]}}, with the records in the
 * phonebook library's JSON form and texts in UTF-8. Blank lines and lines
 * beginning with '#' are skipped.
 */
#include "import.h"

#include <sstream>
#include <vector>

#include "jsontext.h"
#include "phonebook/latin1.h"
#include "phonebook/standin.h"
#include "platform/log.h"
#include "platform/standin.h"

using ZEMBRA::Phonebook::Contact;
using ZEMBRA::Phonebook::Event;
using ZEMBRA::Phonebook::Folder;
using ZEMBRA::Phonebook::utf8ToLatin1;
using ZEMBRA::Phonebook::contactFromJson;
using ZEMBRA::Phonebook::eventFromJson;
using ZEMBRA::Phonebook::folderFromJson;

/* Generated from sample-phonebook.jsonl at build time. */
extern const unsigned char kSamplePhonebook[];
extern const std::size_t kSamplePhonebookSize;

namespace webconfd {

namespace {

const char kFile[] = "webconfd";

/* No record's line is longer, even with every character of a record of
 * kMaxRecordBytes written as a \uXXXX escape (6 bytes) and some room for
 * blanks; a longer line is refused as soon as it is that long, instead of
 * being read whole into memory. */
constexpr std::size_t kMaxLineBytes = 8 * kMaxRecordBytes;

/* Reads the next line, without its end, into `text`; false at the end of
 * the input. Stops at kMaxLineBytes with *tooLong, the rest of the line
 * unread. */
bool readLine(std::istream& in, std::string* text, bool* tooLong)
{
    text->clear();
    *tooLong = false;
    std::streambuf* buffer = in.rdbuf();
    bool any = false;
    for (int c = buffer->sbumpc(); c != std::char_traits<char>::eof(); c = buffer->sbumpc()) {
        any = true;
        if (c == '\n')
            return true;
        if (text->size() == kMaxLineBytes) {
            *tooLong = true;
            return true;
        }
        text->push_back(static_cast<char>(c));
    }
    return any;
}

/* Skips the rest of a line. */
void skipLine(std::istream& in)
{
    std::streambuf* buffer = in.rdbuf();
    for (int c = buffer->sbumpc(); c != std::char_traits<char>::eof() && c != '\n'; c = buffer->sbumpc()) {
    }
}

/* Stores one line's record; false with the reason when the line is none. */
bool importLine(Store& store, const Json::Value& line, ImportReport* report, std::string* why)
{
    if (!line.isObject() || line.size() != 1) {
        *why = "not an object with one member \"contact\", \"event\" or \"folder\"";
        return false;
    }
    const std::string kind = line.getMemberNames()[0];
    const Json::Value record = utf8ToLatin1(line[kind]);
    if (!record.isObject()) {
        *why = "the record is not an object";
        return false;
    }

    Change change;
    int* count;
    if (kind == "contact") {
        Contact contact = contactFromJson(record);
        change = store.putContact(contact);
        count = &report->contacts;
    } else if (kind == "event") {
        Event event = eventFromJson(record);
        change = store.putEvent(event);
        count = &report->events;
    } else if (kind == "folder") {
        Folder folder = folderFromJson(record);
        std::vector<std::string> members;
        const Json::Value& list = record["members"];
        for (Json::ArrayIndex i = 0; list.isArray() && i < list.size(); i++) {
            if (list[i].isString())
                members.push_back(list[i].asString());
        }
        change = store.putFolder(folder, members);
        count = &report->folders;
    } else {
        *why = "unknown record kind (contact, event or folder)";
        return false;
    }
    if (change == Change::Failed) {
        report->failed = true;
        *why = "the database failed";
        return false;
    }
    if (change == Change::Rejected) {
        *why = "record refused (too long, or a folder without uid)";
        return false;
    }
    (*count)++;
    return true;
}

}  // namespace

ImportReport importRecords(Store& store, std::istream& in, const std::string& origin)
{
    ImportReport report;
    if (!store.begin()) {
        report.failed = true;
        return report;
    }
    std::string text;
    unsigned long number = 0;
    bool tooLong = false;
    while (!report.failed && readLine(in, &text, &tooLong)) {
        number++;
        if (tooLong) {
            LOG_ExpError(kFile, "importRecords", __LINE__, "%s:%lu: line longer than %lu bytes, refused",
                         origin.c_str(), number, static_cast<unsigned long>(kMaxLineBytes));
            report.rejected++;
            skipLine(in);
            continue;
        }
        if (!text.empty() && text.back() == '\r')
            text.pop_back();
        const std::size_t start = text.find_first_not_of(" \t");
        if (start == std::string::npos || text[start] == '#')
            continue;
        Json::Value line;
        std::string why;
        if (!parseJson(text, &line, &why) || !importLine(store, line, &report, &why)) {
            LOG_ExpError(kFile, "importRecords", __LINE__, "%s:%lu: %s", origin.c_str(), number, why.c_str());
            report.rejected++;
        }
    }
    if (report.failed) {
        store.rollback();
        return report;
    }
    if (!store.commit()) {
        store.rollback();
        report.failed = true;
    }
    return report;
}

ImportReport importSample(Store& store)
{
    std::istringstream in(std::string(reinterpret_cast<const char*>(kSamplePhonebook), kSamplePhonebookSize));
    return importRecords(store, in, "sample phonebook");
}

}  // namespace webconfd
