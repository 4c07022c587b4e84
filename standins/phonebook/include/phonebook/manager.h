/*
 * The phonebook manager, as the phonebook library declares it: other
 * services search and change the phonebook through it; it routes each call to
 * the registered backend. What our stand-in adds is below a "stand-in extras"
 * line.
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
    /* Where a search looks; passed to the backends' side unread here. The
     * library gives it no value names we may rely on (see below). */
    enum SearchMode : int {};

    Manager();
    ~Manager();
    Manager(const Manager&) = delete;
    Manager& operator=(const Manager&) = delete;

    /* The backend is borrowed; a second registration replaces the first. */
    void registerBackend(SearchBackendInterface* backend);

    /* Hands the search to the backend, whatever its query mode (the backend
     * judges the mode). Without a backend the client is finished at once with
     * ResultNone. Returns whether a backend took it (a result of ours; the
     * library's callers do not read it). */
    bool search(boost::shared_ptr<AbstractQueryClient> client, SearchMode mode);

    /* Hand the record to the backend; false when there is none. */
    bool addContact(Contact* contact);
    bool deleteContact(Contact* contact);
    bool addEvent(Event* event);
    bool deleteEvent(Event* event);

    /* ---- stand-in extras, not part of the phonebook library ---------- */
    static constexpr SearchMode SearchLocal = static_cast<SearchMode>(0);
    static constexpr SearchMode SearchBackends = static_cast<SearchMode>(1);
    static constexpr SearchMode SearchAll = static_cast<SearchMode>(2);

private:
    SearchBackendInterface* backend();

    std::mutex lock_;
    SearchBackendInterface* backend_;
};

}  // namespace Phonebook
}  // namespace ZEMBRA

#endif
