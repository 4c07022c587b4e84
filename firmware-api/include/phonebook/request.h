/*
 * Requests to and replies from the configuration daemon, and their JSON form
 * on the wire (UTF-8); docs/phonebook-json.md is the schema. The type
 * numbers of the parameter records have no names.
 */
#ifndef PHONEBOOK_REQUEST_H
#define PHONEBOOK_REQUEST_H

#include <cstdint>
#include <string>
#include <vector>

#include <boost/shared_ptr.hpp>
#include <boost/variant.hpp>
#include <json/value.h>

#include "phonebook/records.h"

namespace ZEMBRA {
namespace Phonebook {

/* type: search by ID 0, Number 1, NameAlpha 2, NameVanity 3, Index 4; add
 * contact 5; delete contact 6. */
struct ContactParams {
    int32_t type = 0;
    Json::Value data;
};

/* type: search by range 0, add event 2, delete event 3. */
struct EventParams {
    int32_t type = 0;
    Json::Value data;
};

/* type: list folders 0. */
struct FolderParams {
    int32_t type = 0;
    Json::Value data;
};

class Request {
public:
    /* offset and size start at 0. */
    Request(unsigned int queryId, const std::string& userId);

    unsigned int queryId;
    std::string userId;
    boost::variant<boost::blank, ContactParams, EventParams, FolderParams> params;
    int offset;
    int size;

    /* The wire form: texts converted to UTF-8. */
    Json::Value toJson() const;
};

enum ResponseType {
    Contacts = 0,
    Events = 1,
    Folders = 2,
    Acknowledge = 3,
    ConfigChanged = 5,
};

class Response {
public:
    /* Reads a reply from its wire form. Untrusted input: never throws;
     * missing members or members of the wrong type read as 0 or empty (type
     * as -1, so that it matches no ResponseType); without a readable
     * queryId the whole reply reads as a default Response; an item that is
     * not an object is skipped. Every record gets `backendId` as its backend. */
    static Response fromJson(const Json::Value& json, const std::string& backendId);

    unsigned int queryId = 0;
    int type = -1;            /* ResponseType; other values can arrive */
    int32_t total = 0;        /* contacts the query yields in all */
    /* Contact items for type Contacts, Event items for Events, Folder items
     * for Folders; empty for every other type. Never a null pointer. */
    std::vector<boost::shared_ptr<not_declared::Record>> items;

private:
    friend class Library;
    std::string message_;     /* free text of the daemon */
};

}  // namespace Phonebook
}  // namespace ZEMBRA

#endif
