/*
 * PbBackend: the search backend that the phonebook manager calls. Every
 * search and change becomes a JSON request to the configuration daemon; the
 * query table holds one entry per request until its reply or its timer ends
 * it.
 *
 * Threads: the request operations run on their callers' threads, Result and
 * Timeout on the kivo task. One lock guards the table's structure and
 * uiQueryId; it is never held while a client is called or a request is sent.
 * docs/architecture.md says why that is enough.
 */
#ifndef KIVO_PBBACKEND_H
#define KIVO_PBBACKEND_H

#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include <boost/shared_ptr.hpp>

#include "kivo.h"
#include "phonebook/query.h"
#include "phonebook/records.h"
#include "phonebook/request.h"

/* Exported with its type information so that the phonebook library and the
 * module agree on the one class across the library boundary. */
class KIVO_EXPORT PbBackend : public ZEMBRA::Phonebook::SearchBackendInterface {
public:
    /* One open request. client is empty for a change request. */
    struct QueryState {
        boost::shared_ptr<ZEMBRA::Phonebook::AbstractQueryClient> client;
        int resultCount = 0;                 /* records delivered so far */
        ZEMBRA::Phonebook::Contact contact;  /* best contact so far (best match) */
    };

    PbBackend();
    ~PbBackend() override;

    std::string id() const override;
    void startQuery(boost::shared_ptr<ZEMBRA::Phonebook::AbstractQueryClient> client) override;
    void addContact(ZEMBRA::Phonebook::Contact* contact) override;
    void deleteContact(ZEMBRA::Phonebook::Contact* contact) override;
    void addEvent(ZEMBRA::Phonebook::Event* event) override;
    void deleteEvent(ZEMBRA::Phonebook::Event* event) override;

    /* A reply of the daemon (kivo task). */
    void Result(const std::string& strResult);
    /* The timer of a request expired (kivo task). */
    void Timeout(unsigned int queryId);

    /* Inspection for the status dump and for tests. */
    std::size_t openCount() const;
    std::vector<unsigned int> openIds() const;
    /* The entry of an open request, copied; false when none. */
    bool lookup(unsigned int queryId, QueryState* out) const;

private:
    typedef std::map<unsigned int, QueryState>::iterator Entry;

    /* Under the table lock: makes the entry of the current query id, arms
     * its timer, builds its request with `build`, then raises the counter;
     * returns the request's text. If `build` throws, the id is spent: the
     * entry is erased and the counter raised, so the timer already armed
     * for it finds nothing. traceId: the search's id trace. */
    std::string openRequest(const boost::shared_ptr<ZEMBRA::Phonebook::AbstractQueryClient>& client, bool traceId,
                            const std::function<ZEMBRA::Phonebook::Request(unsigned int)>& build);
    /* Removes an entry, handing back what it held. */
    QueryState closeEntry(Entry entry);
    /* A change request: entry, timer, request with its parameters, send. */
    void changeRequest(const char* function, int requestLine, int createLine,
                       const std::function<void(ZEMBRA::Phonebook::Request&)>& setParams);
    void deliverContacts(Entry entry, const ZEMBRA::Phonebook::Response& reply);
    void endQuery(Entry entry, const ZEMBRA::Phonebook::Response& reply);

    std::string backendId;
    std::map<unsigned int, QueryState> queries;
};

#endif
