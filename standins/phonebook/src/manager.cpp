/*
 * The manager routes every call to the one registered backend. The lock
 * guards only the backend pointer and is released before the backend is
 * called, so a backend (or a client it finishes at once) may call back into
 * the manager on the same thread.
 */
#include "phonebook/manager.h"

#include "phonebook/standin.h"

namespace ZEMBRA {
namespace Phonebook {

Manager::Manager() = default;

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

void Manager::search(boost::shared_ptr<AbstractQueryClient> client, SearchMode)
{
    if (!client) {
        return;
    }
    SearchBackendInterface* b = backend();
    if (!b) {
        client->backendHasFinished(ResultNone);
        return;
    }
    b->startQuery(client);
}

void Manager::addContact(Contact* contact)
{
    SearchBackendInterface* b = backend();
    if (contact && b) {
        b->addContact(contact);
    }
}

void Manager::deleteContact(Contact* contact)
{
    SearchBackendInterface* b = backend();
    if (contact && b) {
        b->deleteContact(contact);
    }
}

void Manager::addEvent(Event* event)
{
    SearchBackendInterface* b = backend();
    if (event && b) {
        b->addEvent(event);
    }
}

void Manager::deleteEvent(Event* event)
{
    SearchBackendInterface* b = backend();
    if (event && b) {
        b->deleteEvent(event);
    }
}

}  // namespace Phonebook
}  // namespace ZEMBRA
