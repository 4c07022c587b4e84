/*
 * Stand-in extras: ours, not part of the phonebook library's interface.
 *
 * The library's headers (firmware-api/include/phonebook/) declare only what
 * the library provides to its users. What our stand-in adds for its own
 * code, the daemon, the host and the tests is here: names for the values the
 * library leaves unnamed, the records' JSON readers, the daemon's side of
 * the wire, and Library, the friend through which the library's own code
 * reaches the records' private members. The module cannot see this header:
 * its only include path of ours is firmware-api/include.
 */
#ifndef PHONEBOOK_STANDIN_H
#define PHONEBOOK_STANDIN_H

#include <cstdint>
#include <string>

#include <boost/variant.hpp>
#include <json/value.h>

#include "phonebook/manager.h"
#include "phonebook/query.h"
#include "phonebook/records.h"
#include "phonebook/request.h"

namespace ZEMBRA {
namespace Phonebook {

/* The common type of a reply's records, by a name we may spell. */
using Record = not_declared::Record;
/* The type of Request::params. */
typedef boost::variant<boost::blank, ContactParams, EventParams, FolderParams> RequestParams;

/* Values the library gives without names. */
constexpr AbstractQueryClient::CacheInfo CacheNone = static_cast<AbstractQueryClient::CacheInfo>(0);
constexpr AbstractQueryClient::CacheInfo CacheRemote = static_cast<AbstractQueryClient::CacheInfo>(1);
constexpr AbstractQueryClient::QueryResult ResultFound = static_cast<AbstractQueryClient::QueryResult>(0);
constexpr AbstractQueryClient::QueryResult ResultNone = static_cast<AbstractQueryClient::QueryResult>(1);
constexpr Manager::SearchMode SearchLocal = static_cast<Manager::SearchMode>(0);
constexpr Manager::SearchMode SearchBackends = static_cast<Manager::SearchMode>(1);
constexpr Manager::SearchMode SearchAll = static_cast<Manager::SearchMode>(2);

/* The operations of a request's parameter records (their `type`). */
enum ContactOp { ContactById = 0, ContactByNumber = 1, ContactByNameAlpha = 2, ContactByNameVanity = 3,
                 ContactByIndex = 4, ContactAdd = 5, ContactDelete = 6 };
enum EventOp { EventByRange = 0, EventAdd = 2, EventDelete = 3 };
enum FolderOp { FolderListing = 0 };
/* An event's kind. */
enum EventKind { EventMissed = 0, EventIncoming = 1, EventOutgoing = 2 };

/* The library's own code: what the records and replies keep private. */
class Library {
public:
    using EventData = Event::Data;
    using FolderData = Folder::Data;
    using EntryData = ContactEntry::Data;

    static EventData& data(Event& e) { return e.data_; }
    static const EventData& data(const Event& e) { return e.data_; }
    static FolderData& data(Folder& f) { return f.data_; }
    static const FolderData& data(const Folder& f) { return f.data_; }
    static EntryData& data(ContactEntry& e) { return e.data_; }
    static const EntryData& data(const ContactEntry& e) { return e.data_; }

    /* A reply's free text. */
    static std::string& message(Response& r) { return r.message_; }
    static const std::string& message(const Response& r) { return r.message_; }

    /* What backendHasFinished kept. */
    static bool finished(const AbstractQueryClient& c) { return c.finished_; }
    static AbstractQueryClient::QueryResult result(const AbstractQueryClient& c) { return c.result_; }
    static void setFinished(AbstractQueryClient& c, AbstractQueryClient::QueryResult r)
    {
        c.result_ = r;
        c.finished_ = true;
    }
};

Event makeEvent(const std::string& backend, const std::string& uid, int32_t kind, const std::string& number,
                const std::string& name, int64_t timestamp, int32_t duration);
Folder makeFolder(const std::string& backend, const std::string& uid, const std::string& name, int32_t count);

/* A record from its JSON form (texts in ISO-8859-1); missing members or
 * members of the wrong type leave the member at its default. Never throws. */
Contact contactFromJson(const Json::Value& json);
ContactNumber numberFromJson(const Json::Value& json);
Event eventFromJson(const Json::Value& json);
Folder folderFromJson(const Json::Value& json);
Json::Value numberToJson(const ContactNumber& number);
Json::Value entryToJson(const ContactEntry& entry);

bool operator==(const ContactNumber& a, const ContactNumber& b);
bool operator==(const ContactEntry& a, const ContactEntry& b);
bool operator==(const Contact& a, const Contact& b);
bool operator==(const Event& a, const Event& b);
bool operator==(const Folder& a, const Folder& b);

/* Reads a request's wire form (texts back to ISO-8859-1). Returns false and
 * says why in *error when a member is missing or of the wrong type. Never
 * throws. */
bool requestFromJson(const Json::Value& json, Request& out, std::string* error);
/* A reply's wire form, for the daemon. */
Json::Value responseToJson(const Response& response);

/* Keypad digits of a name for vanity search: letters map to the digit of
 * their key (ITU E.161: abc 2, def 3, ghi 4, jkl 5, mno 6, pqrs 7, tuv 8,
 * wxyz 9), ISO-8859-1 letters to the key of their base letter (ä 2, ö 6,
 * ü 8, ß 7, é 3, ...), digits stay; everything else is dropped. */
std::string vanityKey(const std::string& latin1Name);

}  // namespace Phonebook
}  // namespace ZEMBRA

#endif
