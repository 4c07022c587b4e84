/*
 * Test frame of the module's unit tests: the module runs against the
 * recording platform; every test starts from a freshly loaded module and
 * ends clean (no open entry, no live raw message, no client left alive).
 */
#ifndef TESTS_KIVO_FIXTURE_H
#define TESTS_KIVO_FIXTURE_H

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include <boost/shared_ptr.hpp>
#include <gtest/gtest.h>
#include <json/json.h>

#include "kivo.h"
#include "kivoglob.h"
#include "pbbackend.h"
#include "module_support.h"
#include "platform/recording.h"

/* A query client that records every call. `alive` counts the instances, so
 * a test can check that the module dropped every reference. */
class FakeClient : public ZEMBRA::Phonebook::AbstractQueryClient {
public:
    struct Delivery {
        ZEMBRA::Phonebook::Contact contact;
        int cacheInfo;
        std::string pattern;
        int count;
    };

    explicit FakeClient(ZEMBRA::Phonebook::QueryMode mode = ZEMBRA::Phonebook::NameAlpha,
                        const Json::Value& value = Json::Value("W"));
    ~FakeClient() override;

    void requestFinished() override { finishedCalls++; }
    void addContact(const ZEMBRA::Phonebook::Contact& c, CacheInfo info) override
    {
        plainContacts.push_back({c, info, "", 0});
    }
    void addContact(const ZEMBRA::Phonebook::Contact& c, CacheInfo info, const std::string& pattern,
                    int count) override
    {
        contacts.push_back({c, info, pattern, count});
    }
    void addEvent(const ZEMBRA::Phonebook::Event& e, CacheInfo) override { events.push_back(e); }
    void addFolder(const ZEMBRA::Phonebook::Folder& f, CacheInfo) override { folders.push_back(f); }

    int finishedCalls = 0;
    std::vector<Delivery> contacts;
    std::vector<Delivery> plainContacts;
    std::vector<ZEMBRA::Phonebook::Event> events;
    std::vector<ZEMBRA::Phonebook::Folder> folders;

    static std::atomic<int> alive;
};

class KivoTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    /* Loads and starts the module as the host does: KIVO_ExpInit, then the
     * task's start event. */
    void start();
    PbBackend& backend() { return *pBackend.load(); }

    /* A daemon reply delivered to the kivo task. */
    void reply(const std::string& text);
    /* The same built from JSON parts. */
    void reply(unsigned int queryId, int type, int total, const Json::Value& items = Json::Value(Json::arrayValue));
    /* Fires the armed, not yet fired timer of a query id. */
    bool expire(unsigned int queryId);
    /* Starts a search through the backend with a new FakeClient. */
    boost::shared_ptr<FakeClient> search(ZEMBRA::Phonebook::QueryMode mode = ZEMBRA::Phonebook::NameAlpha,
                                         const Json::Value& value = Json::Value("W"), bool bestMatch = false);

    /* The JSON of the n-th request sent to the daemon. */
    Json::Value sentJson(std::size_t n) const;
    std::string terminal() const { return rec::recorder().terminalText(); }
    void clearTerminal() { rec::recorder().terminal.clear(); }
};

#endif
