/*
 * The module's main part: start of the backend on the kivo task, the manager
 * calls behind the exported functions, the query timers, and PbBackend with
 * its query table, requests, reply handling and the cache-clear notice.
 *
 * Locking: tableLock guards the structure of PbBackend::queries and
 * uiQueryId. A request holds it from making its entry until the counter is
 * raised (entry, timer, request with the id, counter), so ids, entries and
 * timers always agree. Entries are made by any thread but only the kivo task
 * changes or erases an existing one, so the kivo task may use an entry it
 * found without holding the lock. The lock is never held while a client is
 * called or a request is sent.
 */
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include <boost/optional.hpp>
#include <json/json.h>

#include "kivo.h"
#include "kivoglob.h"
#include "pbbackend.h"
#include "platform/log.h"
#include "platform/manmsg.h"

using ZEMBRA::Phonebook::AbstractQueryClient;
using ZEMBRA::Phonebook::Contact;
using ZEMBRA::Phonebook::ContactParams;
using ZEMBRA::Phonebook::Event;
using ZEMBRA::Phonebook::EventParams;
using ZEMBRA::Phonebook::Folder;
using ZEMBRA::Phonebook::FolderParams;
using ZEMBRA::Phonebook::Manager;
using ZEMBRA::Phonebook::Request;
using ZEMBRA::Phonebook::Response;

static const char kFile[] = "kivomain";
static const char kDaemon[] = "webconfd@Local";

std::atomic<Manager*> pManager{nullptr};
std::atomic<PbBackend*> pBackend{nullptr};
unsigned int uiQueryId = 0;

static std::mutex tableLock;

static AbstractQueryClient::QueryResult queryResult(int resultCount)
{
    return static_cast<AbstractQueryClient::QueryResult>(resultCount > 0 ? KIVO_RESULT_FOUND : KIVO_RESULT_NONE);
}

static const AbstractQueryClient::CacheInfo kCacheInfo = static_cast<AbstractQueryClient::CacheInfo>(KIVO_CACHE_INFO);

/* ---- start-up ---------------------------------------------------------- */

void KIVO_Init()
{
    if (pManager.load() != nullptr)
        return;
    Manager* manager = new Manager();
    pManager.store(manager);
    PbBackend* backend = new PbBackend();
    pBackend.store(backend);
    manager->registerBackend(backend);
}

void KIVO_InitDb()
{
}

/* ---- manager calls ----------------------------------------------------- */

/* The manager, or null with an error record when the kivo task has not
 * started yet (the host called too early). */
static Manager* manager(const char* function, int line)
{
    Manager* m = pManager.load();
    if (m == nullptr)
        KIVO_LOG_ERROR(kFile, function, line, "kivo task not started");
    return m;
}

int KIVO_Query(boost::shared_ptr<AbstractQueryClient> client, Manager::SearchMode mode)
{
    Manager* m = manager("KIVO_Query", 703);
    if (m == nullptr) {
        if (client)
            client->requestFinished();
        return -1;
    }
    m->search(client, mode);
    return 0;
}

int KIVO_AddContact(Contact* pContact)
{
    if (KIVO_TraceExp())
        UI_ExpWritef("%s  pContact %p\n", "KIVO_AddContact", static_cast<void*>(pContact));
    Manager* m = manager("KIVO_AddContact", 723);
    if (m == nullptr)
        return -1;
    m->addContact(pContact);
    return 0;
}

int KIVO_DelContact(Contact* pContact)
{
    if (KIVO_TraceExp())
        UI_ExpWritef("%s  pContact %p\n", "KIVO_DelContact", static_cast<void*>(pContact));
    Manager* m = manager("KIVO_DelContact", 743);
    if (m == nullptr)
        return -1;
    m->deleteContact(pContact);
    return 0;
}

int KIVO_AddEvent(Event* pEvent)
{
    if (KIVO_TraceExp())
        UI_ExpWritef("%s  pEvent %p\n", "KIVO_AddEvent", static_cast<void*>(pEvent));
    Manager* m = manager("KIVO_AddEvent", 763);
    if (m == nullptr)
        return -1;
    m->addEvent(pEvent);
    return 0;
}

int KIVO_DelEvent(Event* pEvent)
{
    if (KIVO_TraceExp())
        UI_ExpWritef("%s  pEvent %p\n", "KIVO_DelEvent", static_cast<void*>(pEvent));
    Manager* m = manager("KIVO_DelEvent", 783);
    if (m == nullptr)
        return -1;
    m->deleteEvent(pEvent);
    return 0;
}

/* ---- timers and the task's forwarding ---------------------------------- */

int KIVO_QueryTimer(unsigned int queryId)
{
    CManMessage cMsg;
    if (cMsg.Create(KIVO_PRIM_TIMER, 0, 0) != 0) {
        KIVO_LOG_ERROR(kFile, "KIVO_QueryTimer", 816, "cMsg.Create failed\n");
        return -1;
    }
    cMsg.addU32(queryId);
    cManIO.TimerLocal(cMsg, KIVO_TASK_INDEX, KIVO_QUERY_TIME);
    cMsg.Delete();
    return 0;
}

void KIVO_QueryTimeout(unsigned int queryId)
{
    PbBackend* backend = pBackend.load();
    if (backend == nullptr) {
        KIVO_LOG_INFO(kFile, "KIVO_QueryTimeout", 831, "no backend yet, timer %u dropped", queryId);
        return;
    }
    backend->Timeout(queryId);
}

void KIVO_QueryResult(const std::string& text)
{
    PbBackend* backend = pBackend.load();
    if (backend == nullptr) {
        KIVO_LOG_INFO(kFile, "KIVO_QueryResult", 841, "no backend yet, result dropped");
        return;
    }
    backend->Result(text);
}

/* ---- the cache-clear notice -------------------------------------------- */

void ClaerCache_NotifyConfigChangeMessage()
{
    CManMessage cMsg;
    int iRetCode = cMsg.Create(KIVO_PRIM_CACHE_CLEAR, 0, 32);
    if (iRetCode != 0) {
        KIVO_LOG_INFO(kFile, "ClaerCache_NotifyConfigChangeMessage", 507, "send failed iRetCode %d", iRetCode);
        return;
    }
    cManIO.SendLocal(cMsg, KIVO_CACHE_TASK);
    cMsg.Delete();
}

/* ---- PbBackend: object and query table ---------------------------------- */

PbBackend::PbBackend() : backendId("vornsyn")
{
}

PbBackend::~PbBackend()
{
    std::map<unsigned int, QueryState> dropped;
    {
        std::lock_guard<std::mutex> guard(tableLock);
        dropped.swap(queries);
    }
}

std::string PbBackend::id() const
{
    return backendId;
}

std::string PbBackend::openRequest(const boost::shared_ptr<AbstractQueryClient>& client, bool traceId,
                                   const std::function<Request(unsigned int)>& build)
{
    QueryState old;   /* an overwritten entry's client is released unlocked */
    boost::optional<Request> request;
    {
        std::lock_guard<std::mutex> guard(tableLock);
        const unsigned int id = uiQueryId;
        if (traceId && KIVO_TraceInfo())
            UI_ExpWritef("%s:%d  QueryId %d\n", "startQuery", 182, id);
        QueryState& entry = queries[id];
        old = std::move(entry);
        entry = QueryState();
        entry.client = client;
        KIVO_QueryTimer(id);
        try {
            request.emplace(build(id));
        } catch (...) {
            /* The armed timer cannot be taken back: the id is spent, so
             * that the timer finds no entry instead of ending the next
             * query early. */
            queries.erase(id);
            uiQueryId = id + 1;
            throw;
        }
        uiQueryId = id + 1;
    }
    return request->toJson().toStyledString();
}

PbBackend::QueryState PbBackend::closeEntry(Entry entry)
{
    std::lock_guard<std::mutex> guard(tableLock);
    QueryState state = std::move(entry->second);
    queries.erase(entry);
    return state;
}

std::size_t PbBackend::openCount() const
{
    std::lock_guard<std::mutex> guard(tableLock);
    return queries.size();
}

std::vector<unsigned int> PbBackend::openIds() const
{
    std::vector<unsigned int> ids;
    std::lock_guard<std::mutex> guard(tableLock);
    for (const auto& q : queries)
        ids.push_back(q.first);
    return ids;
}

bool PbBackend::lookup(unsigned int queryId, QueryState* out) const
{
    std::lock_guard<std::mutex> guard(tableLock);
    auto it = queries.find(queryId);
    if (it == queries.end())
        return false;
    if (out != nullptr)
        *out = it->second;
    return true;
}

void PbBackend::Timeout(unsigned int queryId)
{
    Entry entry;
    {
        std::lock_guard<std::mutex> guard(tableLock);
        entry = queries.find(queryId);
        if (entry == queries.end())
            return;
    }
    QueryState state = closeEntry(entry);
    if (state.client)
        state.client->backendHasFinished(queryResult(state.resultCount));
    if (KIVO_TraceInfo())
        UI_ExpWritef("%s:%d query %d finished by timer\n", "Timeout", 676, queryId);
}

/* ---- requests ----------------------------------------------------------- */

/* Sends one request text to the daemon; the message is released on every
 * path. Returns false when nothing was sent. */
static bool sendRequest(const char* function, int createLine, unsigned int primitive, const char* source,
                        const std::string& text)
{
    CManMessage cMsg;
    if (cMsg.Create(primitive, 0, static_cast<int>(text.size())) != 0) {
        KIVO_LOG_ERROR(kFile, function, createLine, "cMsg.Create failed\n");
        return false;
    }
    cMsg.addString(text);
    if (source != nullptr && KIVO_TraceInfo())
        UI_ExpWritef("Source address: %s Destination address: %s\n", source, kDaemon);
    cManIO.SendIpc(cMsg, source, kDaemon);
    cMsg.Delete();
    return true;
}

/* The trace of a search's mode (line and word by mode). */
static void traceMode(unsigned int mode, int offset, int size)
{
    switch (mode) {
    case 0:
        UI_ExpWritef("%s:%d  mode: ID  offset %d  size %d\n", "startQuery", 204, offset, size);
        break;
    case 1:
        UI_ExpWritef("%s:%d  mode: Number  offset %d  size %d\n", "startQuery", 228, offset, size);
        break;
    case 2:
        UI_ExpWritef("%s:%d  mode: NameAlpha  offset %d  size %d\n", "startQuery", 210, offset, size);
        break;
    case 3:
        UI_ExpWritef("%s:%d  mode: NameVanity offset %d  size %d\n", "startQuery", 216, offset, size);
        break;
    case 4:
        UI_ExpWritef("%s:%d  mode: Index  offset %d  size %d\n", "startQuery", 222, offset, size);
        break;
    case 5:
        UI_ExpWritef("%s:%d  mode: EventRange  offset %d  size %d\n", "startQuery", 234, offset, size);
        break;
    case 6:
        UI_ExpWritef("%s:%d  mode: FolderList  offset %d  size %d\n", "startQuery", 240, offset, size);
        break;
    default:
        UI_ExpWritef("%s:%d  mode: unknown  offset %d  size %d\n", "startQuery", 246, offset, size);
        break;
    }
}

void PbBackend::startQuery(boost::shared_ptr<AbstractQueryClient> client)
{
    if (!client) {
        KIVO_LOG_ERROR(kFile, "startQuery", 180, "no query client");
        return;
    }
    const ZEMBRA::Phonebook::QueryParameters& p = client->parameters;
    const std::string strRequest = openRequest(client, true, [&p](unsigned int id) {
        Request request(id, p.userId);
        const unsigned int mode = static_cast<unsigned int>(p.mode);
        if (mode <= 4) {
            ContactParams params;
            params.type = static_cast<int32_t>(mode);
            params.data = p.value;
            request.params = params;
        } else if (mode == 5) {
            EventParams params;
            params.type = KIVO_TYPE_EVENT_RANGE;
            params.data = p.value;
            request.params = params;
        } else if (mode == 6) {
            FolderParams params;
            params.type = KIVO_TYPE_FOLDER_LIST;
            params.data = p.value;
            request.params = params;
        }
        if (KIVO_TraceInfo())
            traceMode(mode, p.offset, p.size);
        request.offset = p.offset;
        request.size = p.size;
        if (KIVO_TraceInfo())
            UI_ExpWritef("%s:%d userid %s\n", "startQuery", 252, p.userId.c_str());
        return request;
    });
    if (KIVO_TraceInfo())
        UI_ExpWritef("%s:%d strRequest %s\n", "startQuery", 267, strRequest.c_str());
    sendRequest("startQuery", 273, client->requestPrimitive, client->sourceAddress.c_str(), strRequest);
}

void PbBackend::changeRequest(const char* function, int requestLine, int createLine,
                              const std::function<void(Request&)>& setParams)
{
    const std::string strRequest = openRequest(boost::shared_ptr<AbstractQueryClient>(), false,
                                               [&setParams](unsigned int id) {
                                                   Request request(id, "");
                                                   setParams(request);
                                                   request.offset = 0;
                                                   return request;
                                               });
    if (KIVO_TraceInfo())
        UI_ExpWritef("%s:%d strRequest %s\n", function, requestLine, strRequest.c_str());
    sendRequest(function, createLine, KIVO_PRIM_CHANGE, nullptr, strRequest);
}

void PbBackend::addContact(Contact* contact)
{
    if (contact == nullptr) {
        KIVO_LOG_ERROR(kFile, "addContact", 290, "no contact");
        return;
    }
    if (KIVO_TraceInfo())
        UI_ExpWritef("%s:%d\n", "addContact", 293);
    if (KIVO_TraceInfo())
        UI_ExpWritef("%s:%d contact->getLastName  %s\n", "addContact", 294, contact->getLastName().c_str());
    if (KIVO_TraceInfo())
        UI_ExpWritef("%s:%d contact->getFirstName %s\n", "addContact", 295, contact->getFirstName().c_str());
    changeRequest("addContact", 324, 330, [contact](Request& request) {
        ContactParams params;
        params.type = KIVO_TYPE_CONTACT_ADD;
        params.data = contact->toJson();
        request.params = std::move(params);
    });
}

void PbBackend::deleteContact(Contact* contact)
{
    if (contact == nullptr) {
        KIVO_LOG_ERROR(kFile, "deleteContact", 346, "no contact");
        return;
    }
    if (KIVO_TraceInfo())
        UI_ExpWritef("%s:%d\n", "deleteContact", 349);
    if (KIVO_TraceInfo())
        UI_ExpWritef("%s:%d contact->getUid %s\n", "deleteContact", 350, contact->getUid().c_str());
    changeRequest("deleteContact", 378, 384, [contact](Request& request) {
        ContactParams params;
        params.type = KIVO_TYPE_CONTACT_DELETE;
        params.data = Json::Value(contact->getUid());
        request.params = std::move(params);
    });
}

void PbBackend::addEvent(Event* event)
{
    if (event == nullptr) {
        KIVO_LOG_ERROR(kFile, "addEvent", 400, "no event");
        return;
    }
    if (KIVO_TraceInfo())
        UI_ExpWritef("%s:%d\n", "addEvent", 403);
    changeRequest("addEvent", 432, 438, [event](Request& request) {
        EventParams params;
        params.type = KIVO_TYPE_EVENT_ADD;
        params.data = event->toJson();
        request.params = std::move(params);
    });
}

void PbBackend::deleteEvent(Event* event)
{
    if (event == nullptr) {
        KIVO_LOG_ERROR(kFile, "deleteEvent", 454, "no event");
        return;
    }
    if (KIVO_TraceInfo())
        UI_ExpWritef("%s:%d\n", "deleteEvent", 457);
    if (KIVO_TraceInfo())
        UI_ExpWritef("%s:%d event->getUid %s\n", "deleteEvent", 458, event->getUid().c_str());
    changeRequest("deleteEvent", 486, 492, [event](Request& request) {
        EventParams params;
        params.type = KIVO_TYPE_EVENT_DELETE;
        params.data = Json::Value(event->getUid());
        request.params = std::move(params);
    });
}

/* ---- replies ------------------------------------------------------------ */

/* The search value as the text handed to the client with each contact. */
static std::string searchPattern(const AbstractQueryClient& client)
{
    const Json::Value& v = client.parameters.value;
    return v.isConvertibleTo(Json::stringValue) ? v.asString() : std::string();
}

/* Length of the first number's text3, the measure of the best match. */
static std::size_t matchLength(const Contact& contact)
{
    return contact.numbers.empty() ? 0 : contact.numbers[0].text3.size();
}

/* Replies nest four levels deep. The reader recurses once per level, and
 * its own limit (1000 levels) lies far past what a 256 KiB task stack
 * holds, so a reply nested deeper than this is dropped before it is read. */
static constexpr int KIVO_MAX_REPLY_DEPTH = 64;

/* Whether `text` opens more than `limit` arrays or objects at once. Only
 * brackets outside strings count; the text need not be valid JSON. */
static bool nestsDeeper(const std::string& text, int limit)
{
    int depth = 0;
    bool inString = false;
    for (std::size_t i = 0; i < text.size(); i++) {
        const char c = text[i];
        if (inString) {
            if (c == '\\')
                i++;
            else if (c == '"')
                inString = false;
        } else if (c == '"') {
            inString = true;
        } else if (c == '[' || c == '{') {
            if (++depth > limit)
                return true;
        } else if ((c == ']' || c == '}') && depth > 0) {
            depth--;
        }
    }
    return false;
}

/* The reader of the replies, with CharReaderBuilder's default settings, one
 * per thread: making the builder and its reader cost more than parsing a
 * short reply. A reader starts every parse afresh, also after one that
 * failed or threw. */
static Json::CharReader& replyReader()
{
    thread_local const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    return *reader;
}

void PbBackend::Result(const std::string& strResult)
{
    if (KIVO_TraceInfo()) {
        UI_ExpWritef("%s:%d strResult \n", "Result", 525);
        char piece[992 + 1];
        std::size_t pos = 0;
        for (int i = 0; i < 10; i++) {
            std::size_t n = strResult.copy(piece, 992, pos);
            if (n == 0)
                break;
            piece[n] = '\0';
            UI_ExpWritef("%s", piece);
            pos += n;
        }
    }

    if (nestsDeeper(strResult, KIVO_MAX_REPLY_DEPTH)) {
        KIVO_LOG_ERROR(kFile, "Result", 527, "reply nested deeper than %d levels dropped", KIVO_MAX_REPLY_DEPTH);
        return;
    }
    Json::Value root;
    {
        std::string errors;
        const char* text = strResult.c_str();
        bool parsed;
        try {
            parsed = replyReader().parse(text, text + strResult.size(), &root, &errors);
        } catch (const Json::Exception&) {
            parsed = false;   /* nesting beyond the reader's limit */
        }
        if (!parsed)
            return;
    }
    const Response reply = Response::fromJson(root, backendId);

    Entry entry;
    bool known;
    {
        std::lock_guard<std::mutex> guard(tableLock);
        entry = queries.find(reply.queryId);
        known = entry != queries.end();
    }
    if (!known) {
        if (reply.type == ZEMBRA::Phonebook::ConfigChanged)
            ClaerCache_NotifyConfigChangeMessage();
        if (KIVO_TraceInfo())
            UI_ExpWritef("%s:%d abort: invalid id %x\n", "Result", 543, reply.queryId);
        return;
    }

    switch (reply.type) {
    case ZEMBRA::Phonebook::Contacts:
    case ZEMBRA::Phonebook::Events:
    case ZEMBRA::Phonebook::Folders:
        if (reply.items.empty())
            endQuery(entry, reply);
        else if (!entry->second.client) {
            /* A change request has nobody to hand records to. */
            if (KIVO_TraceInfo())
                UI_ExpWritef("%s:%d records for change request %u dropped\n", "Result", 560, reply.queryId);
        } else if (reply.type == ZEMBRA::Phonebook::Contacts)
            deliverContacts(entry, reply);
        else {
            const boost::shared_ptr<AbstractQueryClient> client = entry->second.client;
            for (const auto& item : reply.items) {
                entry->second.resultCount++;
                if (reply.type == ZEMBRA::Phonebook::Events)
                    client->addEvent(static_cast<const Event&>(*item), kCacheInfo);
                else
                    client->addFolder(static_cast<const Folder&>(*item), kCacheInfo);
            }
        }
        break;
    case ZEMBRA::Phonebook::Acknowledge: {
        if (KIVO_TraceInfo())
            UI_ExpWritef("%s:%d acknowledge\n", "Result", 642);
        QueryState state = closeEntry(entry);
        if (state.client)
            state.client->backendHasFinished(queryResult(state.resultCount));
        break;
    }
    default:
        if (KIVO_TraceInfo())
            UI_ExpWritef("%s:%d abort: invalid type\n", "Result", 651);
        break;
    }
}

void PbBackend::deliverContacts(Entry entry, const Response& reply)
{
    QueryState& q = entry->second;
    const boost::shared_ptr<AbstractQueryClient> client = q.client;
    const std::string pattern = searchPattern(*client);
    const unsigned int total = static_cast<unsigned int>(reply.total);

    for (const auto& item : reply.items) {
        const Contact& contact = static_cast<const Contact&>(*item);
        q.resultCount++;
        if (!client->bestMatchOnly) {
            client->addContact(contact, kCacheInfo, pattern, reply.total);
            continue;
        }
        if (q.resultCount <= 1 || matchLength(contact) > matchLength(q.contact))
            q.contact = contact;
        if (static_cast<unsigned int>(q.resultCount) >= total)
            client->addContact(q.contact, kCacheInfo, pattern, reply.total);
    }
}

void PbBackend::endQuery(Entry entry, const Response& reply)
{
    struct EndTrace {
        int nullLine;
        int endLine;
        int finishedLine;
    };
    static const EndTrace traces[] = {{588, 0, 591}, {610, 606, 613}, {633, 629, 636}};
    const EndTrace& t = traces[reply.type];

    QueryState state = closeEntry(entry);
    if (!state.client) {
        if (KIVO_TraceInfo())
            UI_ExpWritef("%s:%d NULL\n", "Result", t.nullLine);
    } else {
        if (t.endLine != 0 && KIVO_TraceInfo())
            UI_ExpWritef("%s:%d\n", "Result", t.endLine);
        const unsigned int count = static_cast<unsigned int>(state.resultCount);
        if (reply.type == ZEMBRA::Phonebook::Contacts && state.client->bestMatchOnly && state.resultCount > 0 &&
            count < static_cast<unsigned int>(reply.total))
            state.client->addContact(state.contact, kCacheInfo, searchPattern(*state.client),
                                     reply.total);
        state.client->backendHasFinished(queryResult(state.resultCount));
    }
    if (KIVO_TraceInfo())
        UI_ExpWritef("%s:%d query %d finished\n", "Result", t.finishedLine, reply.queryId);
}

/* ---- the console's query client and test searches ---------------------- */

/* Contacts of the most recent test search, in delivery order, at most 11.
 * Written by deliveries on the kivo task, cleared and read on the console's
 * thread: vecLock guards it, and is never held while printing or calling
 * out of the module. */
static std::vector<Contact> vecContact;
static std::mutex vecLock;

namespace {

class MyQueryClient : public AbstractQueryClient {
public:
    void requestFinished() override;
    void addContact(const Contact& contact, CacheInfo) override
    {
        UI_ExpWritef("%s:%d\n", "addContact", 903);
        collect(contact);
    }
    void addContact(const Contact& contact, CacheInfo, const std::string& strSearchPattern,
                    int iCountFound) override
    {
        UI_ExpWritef("%s:%d  strSearchPattern %s  iCountFound %d\n", "addContact", 923, strSearchPattern.c_str(),
                     iCountFound);
        collect(contact);
    }
    void addEvent(const Event&, CacheInfo) override {}
    void addFolder(const Folder&, CacheInfo) override {}

private:
    static void collect(const Contact& contact)
    {
        std::lock_guard<std::mutex> guard(vecLock);
        if (vecContact.size() > 10)
            return;
        vecContact.push_back(contact);
    }
};

void MyQueryClient::requestFinished()
{
    std::vector<Contact> contacts;
    {
        std::lock_guard<std::mutex> guard(vecLock);
        contacts = vecContact;
    }
    UI_ExpWritef("idx name                  firstname             uid                   backend\n");
    UI_ExpWritef("------------------------------------------------------------------------------------\n");
    for (std::size_t i = 0; i < contacts.size(); i++) {
        const Contact& c = contacts[i];
        UI_ExpWritef("%2d) %-20.20s  %-20.20s  %-20.20s  %-10.10s\n", static_cast<int>(i), c.lastName.c_str(),
                     c.firstName.c_str(), c.uid.c_str(), c.backend.c_str());
        const std::size_t n = c.numbers.size();
        for (std::size_t j = 0; j < n; j++) {
            const ZEMBRA::Phonebook::ContactNumber& num = c.numbers[j];
            UI_ExpWritef("    %s %2d %s %-34s %d %d\n", j == n - 1 ? "'--" : "|--", static_cast<int>(j),
                         j == 0 ? "*" : " ", num.number.c_str(), num.value1, num.value2);
        }
    }
}

void testSearch(ZEMBRA::Phonebook::QueryMode mode, const std::string& text)
{
    {
        std::lock_guard<std::mutex> guard(vecLock);
        vecContact.clear();
    }
    boost::shared_ptr<MyQueryClient> client(new MyQueryClient());
    client->parameters.value = Json::Value(text);
    client->parameters.mode = mode;
    client->parameters.offset = 0;
    client->parameters.size = 100;
    client->parameters.userId = "";
    client->sourceAddress = "";
    client->requestPrimitive = 0;
    client->bestMatchOnly = false;
    KIVO_ExpQuery(boost::shared_ptr<AbstractQueryClient>(client),
                  static_cast<Manager::SearchMode>(KIVO_SEARCH_MODE));
}

}  // namespace

void KIVO_TFSearchByID(const std::string& id)
{
    UI_ExpWritef("%s  id %s\n", "KIVO_TFSearchByID", id.c_str());
    testSearch(ZEMBRA::Phonebook::ID, id);
}

void KIVO_TFSearchByNumber(const std::string& strNumber)
{
    UI_ExpWritef("%s  strNumber %s\n", "KIVO_TFSearchByNumber", strNumber.c_str());
    testSearch(ZEMBRA::Phonebook::Number, strNumber);
}

void KIVO_TFSearchByName(const std::string& strName)
{
    UI_ExpWritef("%s  strName %s\n", "KIVO_TFSearchByName", strName.c_str());
    testSearch(ZEMBRA::Phonebook::NameAlpha, strName);
}

void KIVO_TFSearchByIndex(const std::string& strName)
{
    UI_ExpWritef("%s  strName %s\n", "KIVO_TFSearchByIndex", strName.c_str());
    testSearch(ZEMBRA::Phonebook::Index, strName);
}

int KIVO_TFDelete(int iIndex)
{
    UI_ExpWritef("%s:%d  iIndex %d\n", "KIVO_TFDelete", 956, iIndex);
    /* A copy keeps the contact alive while the request is built, even if a
     * new search clears the list meanwhile. */
    std::unique_ptr<Contact> contact;
    {
        std::lock_guard<std::mutex> guard(vecLock);
        if (iIndex >= 0 && static_cast<std::size_t>(iIndex) < vecContact.size())
            contact.reset(new Contact(vecContact[static_cast<std::size_t>(iIndex)]));
    }
    if (!contact) {
        UI_ExpWritef("%s:%d  invalid iIndex\n", "KIVO_TFDelete", 958);
        return 0;
    }
    KIVO_ExpDelContact(contact.get());
    return 0;
}
