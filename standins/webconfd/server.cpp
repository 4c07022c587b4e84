/*
 * Requests to replies. A search is answered by replies of its record type
 * holding at most recordsPerReply records (and about bytesPerReply of
 * their JSON), then one reply of the same type with no records, which ends
 * it; every one carries the total. A change, and a request the daemon does
 * not know, gets one Acknowledge whose message says what happened.
 */
#include "server.h"

#include <boost/make_shared.hpp>
#include <chrono>
#include <limits>

#include "jsontext.h"
#include "phonebook/latin1.h"
#include "phonebook/standin.h"
#include "platform/log.h"
#include "platform/standin.h"

using ZEMBRA::Phonebook::Contact;
using ZEMBRA::Phonebook::ContactAdd;
using ZEMBRA::Phonebook::ContactById;
using ZEMBRA::Phonebook::ContactByIndex;
using ZEMBRA::Phonebook::ContactByNameAlpha;
using ZEMBRA::Phonebook::ContactByNameVanity;
using ZEMBRA::Phonebook::ContactByNumber;
using ZEMBRA::Phonebook::ContactDelete;
using ZEMBRA::Phonebook::EventAdd;
using ZEMBRA::Phonebook::EventByRange;
using ZEMBRA::Phonebook::EventDelete;
using ZEMBRA::Phonebook::FolderListing;
using ZEMBRA::Phonebook::Library;
using ZEMBRA::Phonebook::contactFromJson;
using ZEMBRA::Phonebook::eventFromJson;
using ZEMBRA::Phonebook::responseToJson;
using ZEMBRA::Phonebook::requestFromJson;
using ZEMBRA::Phonebook::ContactParams;
using ZEMBRA::Phonebook::Event;
using ZEMBRA::Phonebook::EventParams;
using ZEMBRA::Phonebook::Folder;
using ZEMBRA::Phonebook::FolderParams;
using ZEMBRA::Phonebook::Request;
using ZEMBRA::Phonebook::Response;

namespace webconfd {

namespace {

const char kFile[] = "webconfd";

/* Known clients kept at most; the oldest goes first. */
constexpr std::size_t kMaxClients = 256;

int64_t steadySeconds()
{
    return std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

/* A search value or uid as text: strings as they are, integers in decimal
 * (a client may send the uid 17 as a number). */
bool textOf(const Json::Value& data, std::string* out)
{
    if (data.isString())
        *out = data.asString();
    else if (data.type() == Json::intValue)
        *out = std::to_string(data.asLargestInt());
    else if (data.type() == Json::uintValue)
        *out = std::to_string(data.asLargestUInt());
    else
        return false;
    return true;
}

/* The position of an index search: a decimal text or a whole number. */
bool positionOf(const Json::Value& data, int64_t* out)
{
    std::string text;
    if (!textOf(data, &text) || text.empty() || text.size() > 9 ||
        text.find_first_not_of("0123456789") != std::string::npos)
        return false;
    *out = std::stoll(text);
    return true;
}

bool timeOf(const Json::Value& value, int64_t* out)
{
    if (value.isNull())
        return true;   // that end of the range is open
    if ((value.type() != Json::intValue && value.type() != Json::uintValue) || !value.isInt64())
        return false;
    *out = value.asInt64();
    return true;
}

/* An event range: {"from": t1, "to": t2} (either may be left out), or
 * null or "" for all events. */
bool rangeOf(const Json::Value& data, int64_t* from, int64_t* to)
{
    *from = std::numeric_limits<int64_t>::min();
    *to = std::numeric_limits<int64_t>::max();
    if (data.isNull() || (data.isString() && data.asString().empty()))
        return true;
    return data.isObject() && timeOf(data["from"], from) && timeOf(data["to"], to);
}

Response acknowledge(const Request& request, const std::string& message)
{
    Response r;
    r.queryId = request.queryId;
    r.type = ZEMBRA::Phonebook::Acknowledge;
    Library::message(r) = message;
    return r;
}

/* The acknowledgement of a change, and whether the phonebook changed.
 * `Replies` is a vector of the server's replies. */
template <typename Replies>
bool acknowledgeChange(const Request& request, Change change, const char* what, const std::string& uid,
                       Replies* replies)
{
    std::string message;
    switch (change) {
    case Change::Added:
        message = std::string("added ") + what + " " + uid;
        break;
    case Change::Replaced:
        message = std::string("replaced ") + what + " " + uid;
        break;
    case Change::Deleted:
        message = std::string("deleted ") + what + " " + uid;
        break;
    case Change::NotFound:
        message = std::string("no ") + what + " " + uid;
        break;
    case Change::Rejected:
        message = std::string("refused: ") + what + " longer than " + std::to_string(kMaxRecordBytes) + " bytes";
        break;
    case Change::Failed:
        message = "database error";
        break;
    }
    replies->push_back(acknowledge(request, message));
    return change == Change::Added || change == Change::Replaced || change == Change::Deleted;
}

template <typename Replies>
void unsupported(const Request& request, const char* kind, int32_t type, Replies* replies)
{
    LOG_ExpError(kFile, "handle", __LINE__, "query %u: unsupported operation %s %d, acknowledged",
                 request.queryId, kind, static_cast<int>(type));
    replies->push_back(acknowledge(request, std::string("unsupported operation ") + kind + " " +
                                                std::to_string(static_cast<int>(type))));
}

/* A record's compact JSON in UTF-8. Its tree is converted where it stands:
 * the member names of records are ASCII. */
template <typename T>
std::string recordText(const T& record)
{
    Json::Value json = record.toJson();
    if (!ZEMBRA::Phonebook::latin1ToUtf8InPlace(&json))
        json = ZEMBRA::Phonebook::latin1ToUtf8(record.toJson());
    return compactJson(json);
}

}  // namespace

Server::Server(Store& store, const ServerOptions& options, Clock clock)
    : store_(store), options_(options), clock_(clock ? clock : Clock(steadySeconds)),
      random_(options.faults.seed)
{
}

Page Server::pageOf(const Request& request) const
{
    Page page;
    page.offset = request.offset > 0 ? request.offset : 0;
    page.limit = request.size > 0 ? request.size : options_.defaultSize;
    if (page.limit > options_.maxSize)
        page.limit = options_.maxSize;
    return page;
}

/* The page's records in as many replies as they need, then the empty one.
 * Each record is written once: its text gives its size and goes into the
 * reply as it is. */
template <typename T>
void Server::addRecords(const Request& request, int type, const Found<T>& found, std::vector<Reply>* replies)
{
    Response envelope;
    envelope.queryId = request.queryId;
    envelope.type = type;
    envelope.total = found.total;
    Reply reply(envelope);
    reply.search = true;
    int32_t records = 0;
    std::size_t bytes = 0;
    for (const T& record : found.items) {
        const std::string text = recordText(record);
        const std::size_t size = text.size();
        if (records > 0 && (records >= options_.recordsPerReply || bytes + size > options_.bytesPerReply)) {
            replies->push_back(std::move(reply));
            reply = Reply(envelope);
            reply.search = true;
            records = 0;
            bytes = 0;
        }
        if (records > 0)
            reply.items += ',';
        reply.items += text;
        records++;
        bytes += size;
    }
    if (records > 0)
        replies->push_back(std::move(reply));
    if (!found.ok)
        Library::message(envelope) = "database error";
    Reply end(envelope);
    end.search = true;
    replies->push_back(std::move(end));
}

bool Server::contactRequest(const Request& request, const ContactParams& p, std::vector<Reply>* replies)
{
    const Page page = pageOf(request);
    std::string text;
    const bool isText = textOf(p.data, &text);
    Found<Contact> found;
    switch (p.type) {
    case ContactById:
        if (isText)
            found = store_.contactsById(text, page);
        break;
    case ContactByNumber:
        if (isText)
            found = store_.contactsByNumber(text, page);
        break;
    case ContactByNameAlpha:
        if (isText)
            found = store_.contactsByName(text, page);
        break;
    case ContactByNameVanity:
        if (isText)
            found = store_.contactsByKeypad(text, page);
        break;
    case ContactByIndex: {
        int64_t position;
        if (positionOf(p.data, &position))
            found = store_.contactAtPosition(position, page);
        break;
    }
    case ContactAdd: {
        if (!p.data.isObject()) {
            replies->push_back(acknowledge(request, "refused: the contact is not an object"));
            return false;
        }
        Contact contact = contactFromJson(p.data);
        return acknowledgeChange(request, store_.putContact(contact), "contact", contact.uid, replies);
    }
    case ContactDelete:
        if (!isText) {
            replies->push_back(acknowledge(request, "refused: the uid is not a string"));
            return false;
        }
        return acknowledgeChange(request, store_.deleteContact(text), "contact", text, replies);
    default:
        unsupported(request, "contact", p.type, replies);
        return false;
    }
    addRecords(request, ZEMBRA::Phonebook::Contacts, found, replies);
    return false;
}

bool Server::eventRequest(const Request& request, const EventParams& p, std::vector<Reply>* replies)
{
    switch (p.type) {
    case EventByRange: {
        int64_t from;
        int64_t to;
        Found<Event> found;
        if (rangeOf(p.data, &from, &to))
            found = store_.eventsBetween(from, to, pageOf(request));
        addRecords(request, ZEMBRA::Phonebook::Events, found, replies);
        return false;
    }
    case EventAdd: {
        if (!p.data.isObject()) {
            replies->push_back(acknowledge(request, "refused: the event is not an object"));
            return false;
        }
        Event event = eventFromJson(p.data);
        const Change change = store_.putEvent(event);   // gives a new event its uid
        return acknowledgeChange(request, change, "event", event.getUid(), replies);
    }
    case EventDelete: {
        std::string uid;
        if (!textOf(p.data, &uid)) {
            replies->push_back(acknowledge(request, "refused: the uid is not a string"));
            return false;
        }
        return acknowledgeChange(request, store_.deleteEvent(uid), "event", uid, replies);
    }
    default:
        unsupported(request, "event", p.type, replies);
        return false;
    }
}

void Server::folderRequest(const Request& request, const FolderParams& p, std::vector<Reply>* replies)
{
    if (p.type != FolderListing) {
        unsupported(request, "folder", p.type, replies);
        return;
    }
    addRecords(request, ZEMBRA::Phonebook::Folders, store_.folders(pageOf(request)), replies);
}

void Server::addOutgoing(const std::string& destination, Reply reply, std::vector<Outgoing>* out)
{
    const Faults& f = options_.faults;
    if (f.dropPercent > 0 && random_() % 100 < f.dropPercent)
        return;
    if (f.invalidType)
        reply.response.type = kInvalidReplyType;
    std::string text = compactJson(responseToJson(reply.response));
    if (!reply.items.empty()) {
        /* "items" is the first member of the compact text, written "[]"
         * for the response without records: the records go in between. */
        static const char kItems[] = "{\"items\":[]";
        const std::size_t at = sizeof kItems - 2;
        if (text.compare(0, at + 1, kItems) == 0)
            text.insert(at, reply.items);
        else
            LOG_ExpError(kFile, "addOutgoing", __LINE__, "reply written without its records");
    }
    if (f.notJson)
        text.resize(text.size() / 2);   // half an object never parses
    const Outgoing m{destination, std::move(text), f.delayMs, reply.response.queryId, reply.search,
                     reply.search && reply.items.empty()};
    if (f.duplicate)
        out->push_back(m);
    out->push_back(m);
}

std::vector<Outgoing> Server::noticesExcept(const std::string& source, int64_t now)
{
    Response notice;
    notice.queryId = kNoQueryId;
    notice.type = ZEMBRA::Phonebook::ConfigChanged;
    Library::message(notice) = "phonebook changed";
    const std::string text = compactJson(responseToJson(notice));

    std::vector<Outgoing> out;
    for (auto it = clients_.begin(); it != clients_.end();) {
        if (now - it->second > options_.clientTtlSeconds) {
            it = clients_.erase(it);
            continue;
        }
        if (it->first != source)
            out.push_back(Outgoing{it->first, text, 0});
        ++it;
    }
    return out;
}

void Server::forget(const std::string& address)
{
    std::lock_guard<std::mutex> guard(lock_);
    clients_.erase(address);
}

std::vector<Outgoing> Server::announceChange()
{
    std::lock_guard<std::mutex> guard(lock_);
    return noticesExcept(std::string(), clock_());
}

std::vector<Outgoing> Server::handle(const std::string& source, const std::string& text)
{
    std::lock_guard<std::mutex> guard(lock_);
    Json::Value json;
    std::string why;
    if (!parseJson(text, &json, &why)) {
        LOG_ExpError(kFile, "handle", __LINE__, "request from %s is not JSON (%s), dropped", source.c_str(),
                     why.c_str());
        return {};
    }
    Request request(0, "");
    if (!requestFromJson(json, request, &why)) {
        LOG_ExpError(kFile, "handle", __LINE__, "request from %s dropped: %s", source.c_str(), why.c_str());
        return {};
    }

    const int64_t now = clock_();
    clients_[source] = now;
    if (clients_.size() > kMaxClients) {
        auto oldest = clients_.begin();
        for (auto it = clients_.begin(); it != clients_.end(); ++it) {
            if (it->second < oldest->second)
                oldest = it;
        }
        clients_.erase(oldest);
    }

    std::vector<Reply> replies;
    bool changed = false;
    if (const ContactParams* p = boost::get<ContactParams>(&request.params))
        changed = contactRequest(request, *p, &replies);
    else if (const EventParams* p = boost::get<EventParams>(&request.params))
        changed = eventRequest(request, *p, &replies);
    else if (const FolderParams* p = boost::get<FolderParams>(&request.params))
        folderRequest(request, *p, &replies);
    else
        unsupported(request, "none", 0, &replies);

    if (options_.verbose) {
        const Response& last = replies.back().response;
        LOG_ExpInfo(kFile, "handle", __LINE__, "query %u from %s: %lu replies, total %d, \"%s\"", request.queryId,
                    source.c_str(), static_cast<unsigned long>(replies.size()), static_cast<int>(last.total),
                    Library::message(last).c_str());
    }

    std::vector<Outgoing> out;
    for (Reply& reply : replies)
        addOutgoing(source, std::move(reply), &out);
    if (changed) {
        std::vector<Outgoing> notices = noticesExcept(source, now);
        out.insert(out.end(), notices.begin(), notices.end());
    }
    return out;
}

}  // namespace webconfd
