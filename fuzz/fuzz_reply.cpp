/*
 * Fuzz target: daemon reply texts given to the backend while its query
 * table holds plain and best-match searches of every kind and change
 * requests.
 *
 * Input: one flag byte (bit 0 trace "info" on, bit 1 trace "exp" on), then
 * segments separated by 0x1e. A segment "T<id>" fires the timer of query
 * <id>; "*" fires every pending timer; anything else is a reply text. After
 * every segment the table must be consistent with what the clients saw;
 * at the end every timer fires and every search must have ended exactly
 * once, with no client reference left in the module.
 */
#include <cstdlib>
#include <string>
#include <vector>

#include <boost/shared_ptr.hpp>

#include "harness.h"
#include "kivoglob.h"
#include "pbbackend.h"
#include "platform/recording.h"

using namespace ZEMBRA::Phonebook;

namespace {

struct Search {
    boost::shared_ptr<FuzzClient> client;
    unsigned int id;
};

Contact& followUpContact()
{
    static Contact c("source", "uid-follow", "", "Elka", "St\xF6" "be", "L\xFC" "nbeck", boost::none);
    return c;
}

/* A client that starts a change from inside its end, on the kivo task. */
void changeFromCallback()
{
    KIVO_ExpDelContact(&followUpContact());
}

unsigned int openSearch(std::vector<Search>& searches, QueryMode mode, const Json::Value& value, bool bestMatch,
                        void (*onFinished)() = nullptr)
{
    const unsigned int id = uiQueryId;
    boost::shared_ptr<FuzzClient> client(new FuzzClient(mode, value, bestMatch));
    client->onFinished = onFinished;
    FUZZ_CHECK(KIVO_ExpQuery(client, Manager::SearchBackends) == 0);
    searches.push_back({client, id});
    return id;
}

/* Every entry of the table is a request that was made, a search's entry
 * holds its own client, and a search is either open or ended once. */
void checkTable(const std::vector<Search>& searches)
{
    PbBackend& backend = *pBackend.load();
    for (unsigned int id : backend.openIds())
        FUZZ_CHECK(id < uiQueryId);
    std::size_t openSearches = 0;
    for (const Search& s : searches) {
        PbBackend::QueryState state;
        const bool open = backend.lookup(s.id, &state);
        FUZZ_CHECK(open == (s.client->finishedCalls == 0));
        if (!open)
            continue;
        openSearches++;
        FUZZ_CHECK(state.client.get() == s.client.get());
        FUZZ_CHECK(state.resultCount >= 0);
        if (!s.client->bestMatchOnly)
            FUZZ_CHECK(state.resultCount == s.client->delivered);
    }
    FUZZ_CHECK(openSearches <= backend.openCount());
}

bool isTimerSegment(const std::string& s, unsigned int* id)
{
    if (s.size() < 2 || s.size() > 11 || s[0] != 'T')
        return false;
    unsigned long long v = 0;
    for (std::size_t i = 1; i < s.size(); i++) {
        if (s[i] < '0' || s[i] > '9')
            return false;
        v = v * 10 + static_cast<unsigned>(s[i] - '0');
    }
    if (v > 0xffffffffULL)
        return false;
    *id = static_cast<unsigned int>(v);
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0)
        return 0;
    moduleStart();
    if (data[0] & 1)
        KIVO_DebugSet("info", 1);
    if (data[0] & 2)
        KIVO_DebugSet("exp", 1);

    std::vector<Search> searches;
    {
        Json::Value range;
        range["from"] = 1700000000;
        range["to"] = 1700086400;
        Json::Value object;
        object["a"] = 1;
        Contact contact("source", "uid-add", "", "Tilmo", "Wefer", "H\xF6strand", std::string("opt"));
        contact.numbers.push_back(ContactNumber("", "011122233344", "", "", 1, 2, -1));
        Event event;
        event.uid = "ev-1";

        openSearch(searches, NameAlpha, Json::Value("W"), false);        // 0
        openSearch(searches, Number, Json::Value("0711"), true);         // 1
        openSearch(searches, EventRange, range, false);                  // 2
        openSearch(searches, FolderList, Json::Value(), false);          // 3
        FUZZ_CHECK(KIVO_ExpAddContact(&contact) == 0);                   // 4
        FUZZ_CHECK(KIVO_ExpDelEvent(&event) == 0);                       // 5
        openSearch(searches, NameVanity, Json::Value("9337"), true, changeFromCallback);  // 6
        openSearch(searches, ID, object, true);                          // 7
        openSearch(searches, static_cast<QueryMode>(9), Json::Value(7), false);  // 8
    }
    checkTable(searches);

    for (const std::string& segment : splitInput(data + 1, size - 1, '\x1e', 24)) {
        unsigned int id;
        if (segment == "*")
            rec::fireAllTimers();
        else if (isTimerSegment(segment, &id))
            fireTimerOf(id);
        else
            deliverReplyChecked(segment);
        checkTable(searches);
    }

    /* Every armed timer comes back; then nothing may be open. */
    rec::fireAllTimers();
    checkTable(searches);
    FUZZ_CHECK(pBackend.load()->openCount() == 0);
    FUZZ_CHECK(rec::pendingTimers() == 0);
    for (const Search& s : searches) {
        FUZZ_CHECK(s.client->finishedCalls == 1);
        FUZZ_CHECK(s.client.use_count() == 1);
    }
    searches.clear();
    FUZZ_CHECK(FuzzClient::alive == 0);
    moduleStop();
    return 0;
}
