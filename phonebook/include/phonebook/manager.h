/*
 * The phonebook manager: other services search and change the phonebook
 * through it; it routes each call to the registered backend.
 */
#ifndef PHONEBOOK_MANAGER_H
#define PHONEBOOK_MANAGER_H

#include <mutex>

#include <boost/shared_ptr.hpp>

#include "phonebook/query.h"

namespace ZEMBRA {
namespace Phonebook {

class Manager {
public:
    /* Where a search looks; passed to the backends' side unread here. */
    enum SearchMode { SearchLocal = 0, SearchBackends = 1, SearchAll = 2 };

    Manager();
    ~Manager();
    Manager(const Manager&) = delete;
    Manager& operator=(const Manager&) = delete;

    /* The backend is borrowed; a second registration replaces the first. */
    void registerBackend(SearchBackendInterface* backend);

    /* Hands the search to the backend, whatever its query mode (the backend
     * judges the mode). Without a backend the client is finished at once with
     * ResultNone. Returns whether a backend took it. */
    bool search(boost::shared_ptr<AbstractQueryClient> client, SearchMode mode);

    /* Hand the record to the backend; false when there is none. */
    bool addContact(Contact* contact);
    bool deleteContact(Contact* contact);
    bool addEvent(Event* event);
    bool deleteEvent(Event* event);

private:
    SearchBackendInterface* backend();

    std::mutex lock_;
    SearchBackendInterface* backend_;
};

}  // namespace Phonebook
}  // namespace ZEMBRA

#endif
