/*
 * The shared parts of the query client and the search backend interfaces.
 */
#include "phonebook/query.h"

#include "phonebook/standin.h"

namespace ZEMBRA {
namespace Phonebook {

AbstractQueryClient::~AbstractQueryClient() = default;

void AbstractQueryClient::addContact(const Contact&, CacheInfo, const std::string&, int) {}

void AbstractQueryClient::backendHasFinished(QueryResult r)
{
    Library::setFinished(*this, r);
    requestFinished();
}

SearchBackendInterface::~SearchBackendInterface() = default;

int SearchBackendInterface::supportedQueryModes()
{
    return (1 << (FolderList + 1)) - 1;  // every QueryMode, ID to FolderList
}

}  // namespace Phonebook
}  // namespace ZEMBRA
