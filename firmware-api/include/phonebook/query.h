/*
 * The two interfaces between the phonebook manager and the rest: the query
 * client (who waits for a search) and the search backend (who runs it).
 *
 * CacheInfo and QueryResult have values (CacheInfo 1 with every record a
 * remote backend delivers; QueryResult 0 found, 1 nothing) but no names
 * their users may rely on: a user names the values it needs itself.
 */
#ifndef PHONEBOOK_QUERY_H
#define PHONEBOOK_QUERY_H

#include <cstdint>
#include <string>

#include <boost/shared_ptr.hpp>
#include <json/value.h>

#include "phonebook/records.h"

namespace ZEMBRA {
namespace Phonebook {

/* Kind of a client's search. Values outside 0..6 can occur and are carried
 * as they are. */
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
    Json::Value value;         /* the search value (texts in ISO-8859-1) */
    QueryMode mode = ID;
    int offset = 0;            /* first match to return */
    int size = 0;              /* how many matches at most */
    std::string userId;
};

class AbstractQueryClient {
public:
    enum CacheInfo : int {};
    enum QueryResult : int {};

    virtual ~AbstractQueryClient();

    /* The request has ended; nothing more arrives. */
    virtual void requestFinished() = 0;
    virtual void addContact(const Contact& contact, CacheInfo cacheInfo) = 0;
    /* Delivery with the search pattern and the number of contacts the query
     * yields in all; the default does nothing. */
    virtual void addContact(const Contact& contact, CacheInfo cacheInfo, const std::string& strSearchPattern,
                            int iCountFound);
    virtual void addEvent(const Event& event, CacheInfo cacheInfo) = 0;
    virtual void addFolder(const Folder& folder, CacheInfo cacheInfo) = 0;

    /* A backend has finished the search: the library keeps the result and,
     * as the only backend has now answered, ends the request with
     * requestFinished(). */
    void backendHasFinished(QueryResult result);

    QueryParameters parameters;
    std::string sourceAddress;         /* IPC address the request is sent from */
    uint32_t requestPrimitive = 0;     /* primitive of the request message */
    bool bestMatchOnly = false;        /* deliver only the best contact */

private:
    friend class Library;
    QueryResult result_ = QueryResult();
    bool finished_ = false;
};

class SearchBackendInterface {
public:
    virtual ~SearchBackendInterface();
    virtual std::string id() const = 0;
    virtual void startQuery(boost::shared_ptr<AbstractQueryClient> client) = 0;
    /* Bit n set: QueryMode n is supported. */
    virtual int supportedQueryModes();
    virtual void addContact(Contact* contact) = 0;
    virtual void deleteContact(Contact* contact) = 0;
    virtual void addEvent(Event* event) = 0;
    virtual void deleteEvent(Event* event) = 0;
};

}  // namespace Phonebook
}  // namespace ZEMBRA

#endif
