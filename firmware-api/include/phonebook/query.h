/*
 * The phonebook library's query client and search backend interfaces
 * (declarations only, see firmware-api/README.md). CacheInfo and
 * QueryResult have values (CacheInfo 1; QueryResult 0 and 1) but no names
 * their users may rely on.
 */
#ifndef FIRMWARE_PHONEBOOK_QUERY_H
#define FIRMWARE_PHONEBOOK_QUERY_H

#include <cstdint>
#include <string>

#include <boost/shared_ptr.hpp>
#include <json/value.h>

#include "phonebook/records.h"

namespace ZEMBRA {
namespace Phonebook {

enum QueryMode : int32_t {
    ID = 0,
    Number = 1,
    NameAlpha = 2,
    NameVanity = 3,
    Index = 4,
    EventRange = 5,
    FolderList = 6,
};

struct QueryParameters {
    Json::Value value;
    QueryMode mode;
    int offset;
    int size;
    std::string userId;
};

class AbstractQueryClient {
public:
    enum CacheInfo {};
    enum QueryResult {};

    virtual ~AbstractQueryClient();
    virtual void requestFinished() = 0;
    virtual void addContact(const Contact& contact, CacheInfo cacheInfo) = 0;
    virtual void addContact(const Contact& contact, CacheInfo cacheInfo, const std::string& strSearchPattern,
                            int iCountFound);
    virtual void addEvent(const Event& event, CacheInfo cacheInfo) = 0;
    virtual void addFolder(const Folder& folder, CacheInfo cacheInfo) = 0;

    void backendHasFinished(QueryResult result);

    QueryParameters parameters;
    std::string sourceAddress;
    uint32_t requestPrimitive;
    bool bestMatchOnly;
};

class SearchBackendInterface {
public:
    virtual ~SearchBackendInterface();
    virtual std::string id() const = 0;
    virtual void startQuery(boost::shared_ptr<AbstractQueryClient> client) = 0;
    virtual int supportedQueryModes();
    virtual void addContact(Contact* contact) = 0;
    virtual void deleteContact(Contact* contact) = 0;
    virtual void addEvent(Event* event) = 0;
    virtual void deleteEvent(Event* event) = 0;
};

}  // namespace Phonebook
}  // namespace ZEMBRA

#endif
