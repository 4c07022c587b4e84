/*
 * The phonebook library's manager (declarations only, see
 * firmware-api/README.md). SearchMode has values but no names its users may
 * rely on; the results of its operations are not documented.
 */
#ifndef FIRMWARE_PHONEBOOK_MANAGER_H
#define FIRMWARE_PHONEBOOK_MANAGER_H

#include <boost/shared_ptr.hpp>

#include "phonebook/query.h"
#include "phonebook/records.h"

namespace ZEMBRA {
namespace Phonebook {

class Manager {
public:
    enum SearchMode {};

    Manager();
    void registerBackend(SearchBackendInterface* backend);
    void search(boost::shared_ptr<AbstractQueryClient> client, SearchMode mode);
    void addContact(Contact* contact);
    void deleteContact(Contact* contact);
    void addEvent(Event* event);
    void deleteEvent(Event* event);
};

}  // namespace Phonebook
}  // namespace ZEMBRA

#endif
