/*
 * The manager routes every call to the one registered backend. The lock
 * guards only the backend pointer and is released before the backend is
 * called, so a backend (or a client it finishes at once) may call back into
 * the manager on the same thread.
 */
#include "phonebook/manager.h"

namespace ZEMBRA {
namespace Phonebook {

Manager::Manager() : backend_(nullptr) {}

Manager::~Manager() = default;

void Manager::registerBackend(SearchBackendInterface* backend)
{
    std::lock_guard<std::mutex> guard(lock_);
    backend_ = backend;
}

SearchBackendInterface* Manager::backend()
{
    std::lock_guard<std::mutex> guard(lock_);
    return backend_;
}

bool Manager::search(boost::shared_ptr<AbstractQueryClient> client, SearchMode)
{
    if (!client) {
        return false;
    }
    SearchBackendInterface* b = backend();
    if (!b) {
        client->backendHasFinished(AbstractQueryClient::ResultNone);
        return false;
    }
    b->startQuery(client);
    return true;
}

bool Manager::addContact(Contact* contact)
{
    SearchBackendInterface* b = backend();
    if (!contact || !b) {
        return false;
    }
    b->addContact(contact);
    return true;
}

bool Manager::deleteContact(Contact* contact)
{
    SearchBackendInterface* b = backend();
    if (!contact || !b) {
        return false;
    }
    b->deleteContact(contact);
    return true;
}

bool Manager::addEvent(Event* event)
{
    SearchBackendInterface* b = backend();
    if (!event || !b) {
        return false;
    }
    b->addEvent(event);
    return true;
}

bool Manager::deleteEvent(Event* event)
{
    SearchBackendInterface* b = backend();
    if (!event || !b) {
        return false;
    }
    b->deleteEvent(event);
    return true;
}

}  // namespace Phonebook
}  // namespace ZEMBRA
