/*
 * Requests to and replies from the configuration daemon, and their JSON form
 * on the wire (UTF-8), as the phonebook library declares them.
 * docs/phonebook-json.md is the schema. What our stand-in adds is below
 * "stand-in extras" lines.
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

/* Operation and its argument. type: search by ID 0, Number 1, NameAlpha 2,
 * NameVanity 3, Index 4; add contact 5; delete contact 6. */
struct ContactParams {
    int32_t type = 0;
    Json::Value data;

    /* ---- stand-in extras, not part of the phonebook library ---------- */
    enum Type { ById = 0, ByNumber = 1, ByNameAlpha = 2, ByNameVanity = 3, ByIndex = 4,
                Add = 5, Delete = 6 };
};

/* type: search by range 0, add event 2, delete event 3. */
struct EventParams {
    int32_t type = 0;
    Json::Value data;

    /* ---- stand-in extras, not part of the phonebook library ---------- */
    enum Type { ByRange = 0, Add = 2, Delete = 3 };
};

/* type: list folders 0. */
struct FolderParams {
    int32_t type = 0;
    Json::Value data;

    /* ---- stand-in extras, not part of the phonebook library ---------- */
    enum Type { List = 0 };
};

/* Stand-in extra: a name for the type of Request::params. */
typedef boost::variant<boost::blank, ContactParams, EventParams, FolderParams> RequestParams;

class Request {
public:
    /* size starts at 0. */
    Request(unsigned int queryId, const std::string& userId);

    unsigned int queryId;
    std::string userId;
    RequestParams params;
    int offset;
    int size;

    /* The wire form: texts converted to UTF-8. */
    Json::Value toJson() const;

    /* ---- stand-in extras, not part of the phonebook library ---------- */
    /* Reads the wire form (texts back to ISO-8859-1). Returns false and says
     * why in *error when a member is missing or of the wrong type. Never
     * throws. */
    static bool fromJson(const Json::Value& json, Request& out, std::string* error);
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
    unsigned int queryId;
    int type;                 /* ResponseType; other values can arrive; -1
                                 when unset or unreadable */
    std::string message;      /* free text of the daemon (its name is ours) */
    int32_t total;            /* contacts the query yields in all */
    /* Contact items for type Contacts, Event items for Events, Folder items
     * for Folders; empty for every other type. Never a null pointer. */
    std::vector<boost::shared_ptr<Record>> items;

    /* Reads a reply from its wire form. Untrusted input: never throws;
     * missing members or members of the wrong type read as 0 or empty (type
     * as -1, so that it matches no ResponseType); without a readable
     * queryId the whole reply reads as a default Response; an item that is
     * not an object is skipped. Every record gets `backendId` as its backend. */
    static Response fromJson(const Json::Value& json, const std::string& backendId);

    /* ---- stand-in extras, not part of the phonebook library ---------- */
    Response();
    /* The wire form, for the daemon. */
    Json::Value toJson() const;
};

}  // namespace Phonebook
}  // namespace ZEMBRA

#endif
