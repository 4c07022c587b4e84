/*
 * The phonebook library's request and reply records (declarations only, see
 * firmware-api/README.md). The type numbers of the parameter records have no
 * names.
 */
#ifndef FIRMWARE_PHONEBOOK_REQUEST_H
#define FIRMWARE_PHONEBOOK_REQUEST_H

#include <cstdint>
#include <string>
#include <vector>

#include <boost/shared_ptr.hpp>
#include <boost/variant.hpp>
#include <json/value.h>

#include "phonebook/records.h"

namespace ZEMBRA {
namespace Phonebook {

struct ContactParams {
    int32_t type;
    Json::Value data;
};

struct EventParams {
    int32_t type;
    Json::Value data;
};

struct FolderParams {
    int32_t type;
    Json::Value data;
};

class Request {
public:
    Request(unsigned int queryId, const std::string& userId);

    unsigned int queryId;
    std::string userId;
    boost::variant<boost::blank, ContactParams, EventParams, FolderParams> params;
    int offset;
    int size;

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
    static Response fromJson(const Json::Value& json, const std::string& backendId);

    unsigned int queryId;
    int type;
    std::string not_declared_text;
    int32_t total;
    std::vector<boost::shared_ptr<not_declared::Record>> items;
};

}  // namespace Phonebook
}  // namespace ZEMBRA

#endif
