/*
 * The phonebook library's manager: it routes searches and changes to the
 * registered backend. SearchMode has values but no names its users may rely
 * on; the results of the operations are not documented, so they have none.
 */
#ifndef PHONEBOOK_MANAGER_H
#define PHONEBOOK_MANAGER_H

#include <mutex>

#include <boost/shared_ptr.hpp>

#include "phonebook/query.h"
#include "phonebook/records.h"

namespace ZEMBRA {
namespace Phonebook {

class Manager {
public:
    enum SearchMode : int {};

    Manager();
    ~Manager();

    /* The backend is borrowed; a second registration replaces the first. */
    void registerBackend(SearchBackendInterface* backend);
    /* Hands the search to the backend; `mode` is passed on unread. */
    void search(boost::shared_ptr<AbstractQueryClient> client, SearchMode mode);
    /* Hand the borrowed record to the backend. */
    void addContact(Contact* contact);
    void deleteContact(Contact* contact);
    void addEvent(Event* event);
    void deleteEvent(Event* event);

private:
    Manager(const Manager&) = delete;
    Manager& operator=(const Manager&) = delete;
    SearchBackendInterface* backend();

    std::mutex lock_;                  /* guards backend_ only */
    SearchBackendInterface* backend_ = nullptr;
};

}  // namespace Phonebook
}  // namespace ZEMBRA

#endif
