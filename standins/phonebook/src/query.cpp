/*
 * The shared parts of the query client and the search backend interfaces.
 */
#include "phonebook/query.h"

namespace ZEMBRA {
namespace Phonebook {

AbstractQueryClient::AbstractQueryClient()
    : requestPrimitive(0), bestMatchOnly(false), result(ResultFound), finished(false)
{
}

AbstractQueryClient::AbstractQueryClient(const QueryParameters& parameters,
                                         const std::string& sourceAddress,
                                         uint32_t requestPrimitive, bool bestMatchOnly)
    : parameters(parameters), sourceAddress(sourceAddress), requestPrimitive(requestPrimitive),
      bestMatchOnly(bestMatchOnly), result(ResultFound), finished(false)
{
}

AbstractQueryClient::~AbstractQueryClient() = default;

void AbstractQueryClient::addContact(const Contact&, CacheInfo, const std::string&, int) {}

void AbstractQueryClient::backendHasFinished(QueryResult r)
{
    result = r;
    finished = true;
    requestFinished();
}

SearchBackendInterface::SearchBackendInterface() = default;

SearchBackendInterface::~SearchBackendInterface() = default;

int SearchBackendInterface::supportedQueryModes()
{
    return (1 << (FolderList + 1)) - 1;  // every QueryMode, ID to FolderList
}

}  // namespace Phonebook
}  // namespace ZEMBRA
