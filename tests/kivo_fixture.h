/*
 * Test frame of the module's unit tests. The module runs on the recording
 * platform and a case is compared as one transcript: everything the module
 * did through the platform, in order, every byte (traces, log records with
 * file, function and line, messages with all their fields, timers). The
 * tests' query clients write what they are handed into the same record, so
 * deliveries are pinned in their order too. Every case ends clean: no
 * client alive, no received message unreleased.
 */
#ifndef TESTS_KIVO_FIXTURE_H
#define TESTS_KIVO_FIXTURE_H

#include <atomic>
#include <string>

#include <gtest/gtest.h>

#include "module_support.h"
#include "platform/log.h"

/* A query client whose calls show in the transcript as "~<n> ...", n
 * counting the clients of a case; records with name, uid, backend and
 * cache info. */
class FakeClient : public ZEMBRA::Phonebook::AbstractQueryClient {
public:
    FakeClient(ZEMBRA::Phonebook::QueryMode mode, const Json::Value& value, bool bestMatch = false);
    ~FakeClient() override { UI_ExpWritef("~%d released\n", number); alive--; }
    void requestFinished() override
    {
        ends++;
        UI_ExpWritef(ZEMBRA::Phonebook::Library::finished(*this) ? "~%d finished %d\n" : "~%d requestFinished\n",
                     number, static_cast<int>(ZEMBRA::Phonebook::Library::result(*this)));
    }
    void addContact(const ZEMBRA::Phonebook::Contact& c, CacheInfo info) override
    {
        UI_ExpWritef("~%d contact %s %s %s %d\n", number, c.lastName.c_str(), c.uid.c_str(), c.backend.c_str(), info);
    }
    void addContact(const ZEMBRA::Phonebook::Contact& c, CacheInfo info, const std::string& pattern, int n) override
    {
        UI_ExpWritef("~%d contact %s %s %s %d '%s' %d\n", number, c.lastName.c_str(), c.uid.c_str(),
                     c.backend.c_str(), info, pattern.c_str(), n);
    }
    void addEvent(const ZEMBRA::Phonebook::Event& e, CacheInfo info) override
    {
        const auto& d = ZEMBRA::Phonebook::Library::data(e);
        UI_ExpWritef("~%d event %s %s %s %d\n", number, d.name.c_str(), d.uid.c_str(), d.backend.c_str(), info);
    }
    void addFolder(const ZEMBRA::Phonebook::Folder& f, CacheInfo info) override
    {
        const auto& d = ZEMBRA::Phonebook::Library::data(f);
        UI_ExpWritef("~%d folder %s %s %s %d\n", number, d.name.c_str(), d.uid.c_str(), d.backend.c_str(), info);
    }

    const int number;
    int ends = 0;   /* requestFinished calls */
    static std::atomic<int> alive;
    static std::atomic<int> made;
};

class KivoTest : public ::testing::Test {
public:
    void SetUp() override;
    void TearDown() override;

    /* Load-time state and a fresh platform, nothing started. */
    void unload() { resetModule(); rec::reset(); from = 0; }
    /* The transcript shows what is recorded from now on. */
    void mark() { from = rec::recorder().calls.size(); }
    std::string transcript() const;
    /* The transcript is these lines, each ending in a line feed. */
    void expectTranscript(const std::vector<std::string>& lines) const;

    PbBackend& backend() { return *pBackend.load(); }
    void info() { KIVODebugLevel[KIVO_LEVEL_INFO] = 1; }
    /* Searches through the backend and through the exported function; the
     * module holds the only reference to the client. */
    void search(ZEMBRA::Phonebook::QueryMode mode = ZEMBRA::Phonebook::NameAlpha,
                const Json::Value& value = Json::Value("W"), bool bestMatch = false);
    int query(ZEMBRA::Phonebook::QueryMode mode = ZEMBRA::Phonebook::NameAlpha);
    void reply(const std::string& text);
    void reply(unsigned int queryId, int type, int total, const Json::Value& list = Json::Value());
    void expire(unsigned int queryId) { ASSERT_TRUE(fireTimerOf(queryId)); }
    /* A message to the kivo task; the task's start event. */
    void deliver(const rec::RawBuilder& m)
    {
        ASSERT_TRUE(rec::deliver(KIVO_TASK_INDEX, MAN_EVENT_MESSAGE, 0, m.build()));
    }
    bool startEvent() { return rec::deliver(KIVO_TASK_INDEX, MAN_EVENT_CONTROL, MAN_PRIM_START, nullptr); }

private:
    std::size_t from = 0;
    std::vector<std::string> replies;
};

/* Contact items as the daemon sends them: "Name" or "Name/text3" (the
 * first number's text3, the best-match measure). */
Json::Value items(std::initializer_list<const char*> names);

#endif
