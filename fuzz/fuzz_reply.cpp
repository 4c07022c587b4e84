/* Fuzz target: daemon replies for searches of every kind and two changes. After
 * a flag byte (bit 0: trace "info"), segments split at 0x1e: "T<digit>" fires
 * that query's timer, "*" all timers, the rest are replies. At the end every
 * search has ended once and is no longer referenced. */
#include <sstream>

#include "harness.h"

using namespace ZEMBRA::Phonebook;

/* Stops the run on anything that reaches it after its end. */
struct Client : AbstractQueryClient {
    Client(QueryMode mode, const Json::Value& value, bool bestMatch)
    {
        parameters = {value, mode, 0, 100, ""};
        bestMatchOnly = bestMatch;
    }
    void requestFinished() override { FUZZ_CHECK(ends++ == 0); }
    void addContact(const Contact&, CacheInfo) override { got(); }
    void addContact(const Contact&, CacheInfo, const std::string&, int) override { got(); }
    void addEvent(const Event&, CacheInfo) override { got(); }
    void addFolder(const Folder&, CacheInfo) override { got(); }
    void got() { FUZZ_CHECK(ends == 0), delivered++; }
    int ends = 0, delivered = 0, id = 0;
};

/* A search is open until its client's end; its entry holds that client and,
 * unless best match only, counts what the client got. */
static void checkTable(const std::vector<boost::shared_ptr<Client>>& searches)
{
    for (const boost::shared_ptr<Client>& c : searches) {
        PbBackend::QueryState q;
        FUZZ_CHECK(pBackend.load()->lookup(c->id, &q) == (c->ends == 0));
        FUZZ_CHECK(c->ends != 0 || (q.client == c && (c->bestMatchOnly || q.resultCount == c->delivered)));
    }
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0)
        return 0;
    FUZZ_CHECK(startModule());
    KIVO_DebugSet("info", data[0] & 1);
    const Client rows[] = {{NameAlpha, "W", false}, {Number, "0711", true}, {EventRange, 1700000000, false},
                           {FolderList, Json::Value(), false}, {NameVanity, "9337", true},
                           {ID, parseJson("{\"a\":1}"), true}, {static_cast<QueryMode>(9), 7, false}};
    Event event;
    std::vector<boost::shared_ptr<Client>> searches;
    for (const Client& row : rows) {
        if (searches.size() == 4)   /* the changes take ids 4 and 5 */
            FUZZ_CHECK(KIVO_ExpAddEvent(&event) == 0 && KIVO_ExpDelEvent(&event) == 0);
        searches.emplace_back(new Client(row));
        searches.back()->id = uiQueryId;
        FUZZ_CHECK(KIVO_ExpQuery(searches.back(), SearchBackends) == 0);
    }
    std::istringstream in(std::string(reinterpret_cast<const char*>(data) + 1, size - 1));
    for (std::string s; checkTable(searches), std::getline(in, s, '\x1e');) {
        if (s == "*")
            rec::fireAllTimers();
        else if (s.size() == 2 && s[0] == 'T')
            fireTimerOf(static_cast<unsigned int>(s[1] - '0'));
        else
            FUZZ_CHECK(deliverReply(s));
    }
    rec::fireAllTimers();
    FUZZ_CHECK(pBackend.load()->openCount() == 0 && rec::pendingTimers() == 0);
    for (const boost::shared_ptr<Client>& c : searches)
        FUZZ_CHECK(c->ends == 1 && c.use_count() == 1);
    moduleStop();
    return 0;
}
