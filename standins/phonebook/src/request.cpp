/*
 * Requests and replies in their wire form. Inside the firmware texts are
 * ISO-8859-1, on the wire UTF-8: the whole tree is converted here and
 * nowhere else. Replies come from another process and are read without
 * trusting a single member.
 */
#include "phonebook/request.h"

#include "phonebook/standin.h"

#include <boost/make_shared.hpp>

#include "jsonread.h"
#include "phonebook/latin1.h"
#include "wire.h"

namespace ZEMBRA {
namespace Phonebook {

using detail::isWholeNumber;
using detail::member;
using detail::readInt32;
using detail::readString;

namespace {

const char KindContact[] = "contact";
const char KindEvent[] = "event";
const char KindFolder[] = "folder";

/* The wire form of the variant's record: its data converted to UTF-8; kind
 * names are ASCII. */
class ParamsToJson : public boost::static_visitor<Json::Value> {
public:
    Json::Value operator()(const boost::blank&) const { return Json::Value(); }
    Json::Value operator()(const ContactParams& p) const { return make(KindContact, p.type, p.data); }
    Json::Value operator()(const EventParams& p) const { return make(KindEvent, p.type, p.data); }
    Json::Value operator()(const FolderParams& p) const { return make(KindFolder, p.type, p.data); }

private:
    static Json::Value make(const char* kind, int32_t type, const Json::Value& data)
    {
        Json::Value out(Json::objectValue);
        out["kind"] = kind;
        out["type"] = type;
        out["data"] = latin1ToUtf8(data);
        return out;
    }
};

bool fail(std::string* error, const std::string& why)
{
    if (error) {
        *error = why;
    }
    return false;
}

/* An optional int32 member: absent reads as 0, anything but an int32 is an
 * error. */
bool optionalInt32(const Json::Value& json, const char* name, int* out, std::string* error)
{
    const Json::Value& v = member(json, name);
    if (v.isNull()) {
        *out = 0;
        return true;
    }
    if (!isWholeNumber(v) || !v.isInt()) {
        return fail(error, std::string("\"") + name + "\" is not a 32-bit integer");
    }
    *out = v.asInt();
    return true;
}

bool readParams(const Json::Value& json, RequestParams* out, std::string* error)
{
    if (json.isNull()) {
        *out = boost::blank();
        return true;
    }
    if (!json.isObject()) {
        return fail(error, "\"params\" is neither an object nor null");
    }
    const Json::Value& kind = member(json, "kind");
    if (!kind.isString()) {
        return fail(error, "\"params.kind\" is missing or not a string");
    }
    const Json::Value& type = member(json, "type");
    if (!isWholeNumber(type) || !type.isInt()) {
        return fail(error, "\"params.type\" is missing or not a 32-bit integer");
    }
    const Json::Value& data = member(json, "data");
    const std::string k = kind.asString();
    if (k == KindContact) {
        ContactParams p;
        p.type = type.asInt();
        p.data = data;
        *out = p;
    } else if (k == KindEvent) {
        EventParams p;
        p.type = type.asInt();
        p.data = data;
        *out = p;
    } else if (k == KindFolder) {
        FolderParams p;
        p.type = type.asInt();
        p.data = data;
        *out = p;
    } else {
        return fail(error, "\"params.kind\" \"" + k + "\" is none of contact, event, folder");
    }
    return true;
}

std::string& backendOf(Contact& c)
{
    return c.backend;
}

std::string& backendOf(Event& e)
{
    return Library::data(e).backend;
}

std::string& backendOf(Folder& f)
{
    return Library::data(f).backend;
}

/* Each item is read straight from the UTF-8 tree (wire.h) into its
 * record, which is made in place: no converted copy of the item, no copy
 * of the record. */
template <typename T>
void readItems(const Json::Value& items, const std::string& backendId,
               std::vector<boost::shared_ptr<Record>>* out)
{
    out->reserve(items.size());
    for (const Json::Value& element : items) {
        if (!element.isObject()) {
            continue;
        }
        boost::shared_ptr<T> record = boost::make_shared<T>();
        detail::readWire(element, record.get());
        backendOf(*record) = backendId;
        out->push_back(std::move(record));
    }
}

}  // namespace

/* Request */

Request::Request(unsigned int queryId, const std::string& userId)
    : queryId(queryId), userId(userId), offset(0), size(0)
{
}

Json::Value Request::toJson() const
{
    /* Member names are ASCII, so converting each text as it goes in gives
     * the tree that converting the finished tree would, without copying it. */
    Json::Value out(Json::objectValue);
    out["queryId"] = static_cast<Json::UInt>(queryId);
    out["userId"] = latin1ToUtf8(userId);
    out["params"] = boost::apply_visitor(ParamsToJson(), params);
    out["offset"] = offset;
    out["size"] = size;
    return out;
}

bool requestFromJson(const Json::Value& json, Request& out, std::string* error)
{
    if (!json.isObject()) {
        return fail(error, "request is not a JSON object");
    }
    const Json::Value latin1 = utf8ToLatin1(json);

    const Json::Value& queryId = member(latin1, "queryId");
    if (!isWholeNumber(queryId) || !queryId.isUInt()) {
        return fail(error, "\"queryId\" is missing or not an unsigned 32-bit integer");
    }
    const Json::Value& userId = member(latin1, "userId");
    if (!userId.isNull() && !userId.isString()) {
        return fail(error, "\"userId\" is not a string");
    }
    if (!latin1.isMember("params")) {
        return fail(error, "\"params\" is missing");
    }

    Request request(queryId.asUInt(), userId.isString() ? userId.asString() : std::string());
    if (!readParams(member(latin1, "params"), &request.params, error) ||
        !optionalInt32(latin1, "offset", &request.offset, error) ||
        !optionalInt32(latin1, "size", &request.size, error)) {
        return false;
    }
    out = request;
    return true;
}

/* Response */

Response Response::fromJson(const Json::Value& json, const std::string& backendId)
{
    Response r;
    if (!json.isObject()) {
        return r;
    }
    const Json::Value& queryId = member(json, "queryId");
    const Json::Value& type = member(json, "type");
    /* Without a readable id the reply answers nothing: type -1 keeps it
     * from ending whichever query happens to have id 0. */
    if (!isWholeNumber(queryId) || !queryId.isUInt()) {
        return r;
    }
    r.queryId = queryId.asUInt();
    r.type = isWholeNumber(type) && type.isInt() ? type.asInt() : -1;
    Library::message(r) = utf8ToLatin1(readString(json, "message"));
    r.total = readInt32(json, "total");

    const Json::Value& items = member(json, "items");
    if (!items.isArray()) {
        /* Missing means none; a list of another shape must not read as the
         * empty list that ends a query. */
        if (!items.isNull()) {
            r.type = -1;
        }
        return r;
    }
    switch (r.type) {
    case Contacts:
        readItems<Contact>(items, backendId, &r.items);
        break;
    case Events:
        readItems<Event>(items, backendId, &r.items);
        break;
    case Folders:
        readItems<Folder>(items, backendId, &r.items);
        break;
    default:
        break;  // no other reply carries records
    }
    return r;
}

Json::Value responseToJson(const Response& response)
{
    /* Each text is converted as it goes in, and each item's tree in place,
     * which gives the tree that converting the finished tree would, without
     * copying it. */
    Json::Value out(Json::objectValue);
    out["queryId"] = static_cast<Json::UInt>(response.queryId);
    out["type"] = response.type;
    out["message"] = latin1ToUtf8(Library::message(response));
    out["total"] = response.total;
    Json::Value& list = out["items"] = Json::Value(Json::arrayValue);
    for (const boost::shared_ptr<Record>& item : response.items) {
        if (item) {
            Json::Value json = item->toJson();
            if (!latin1ToUtf8InPlace(&json)) {
                json = latin1ToUtf8(item->toJson());
            }
            list.append(std::move(json));
        }
    }
    return out;
}

}  // namespace Phonebook
}  // namespace ZEMBRA
