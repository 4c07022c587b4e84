/*
 * The query table: ids shared by searches and changes, the wrap of the
 * counter, and the ending of entries by their timers.
 */
#include "kivo_fixture.h"

using namespace ZEMBRA::Phonebook;

namespace {

class TableTest : public KivoTest {
protected:
    void SetUp() override
    {
        KivoTest::SetUp();
        start();
        clearTerminal();
    }
};

TEST_F(TableTest, SearchesAndChangesShareOneIdSequence)
{
    boost::shared_ptr<FakeClient> client = search();
    Contact contact;
    backend().addContact(&contact);
    Event event;
    backend().deleteEvent(&event);

    EXPECT_EQ(backend().openIds(), (std::vector<unsigned int>{0, 1, 2}));
    EXPECT_EQ(uiQueryId, 3u);
    const auto& timers = rec::recorder().timers;
    ASSERT_EQ(timers.size(), 3u);
    for (unsigned int i = 0; i < 3; i++) {
        EXPECT_EQ(timers[i].msg.u32(0), i) << "timer, entry and request carry the same id";
        EXPECT_EQ(sentJson(i)["queryId"].asUInt(), i);
    }
    PbBackend::QueryState state;
    ASSERT_TRUE(backend().lookup(0, &state));
    EXPECT_EQ(state.client, client);
    EXPECT_EQ(state.resultCount, 0);
    ASSERT_TRUE(backend().lookup(1, &state));
    EXPECT_FALSE(state.client) << "a change request has no client";
}

TEST_F(TableTest, CounterWrapsAtTwoToThe32)
{
    uiQueryId = 0xFFFFFFFFu;
    boost::shared_ptr<FakeClient> a = search();
    boost::shared_ptr<FakeClient> b = search();
    EXPECT_EQ(backend().openIds(), (std::vector<unsigned int>{0, 0xFFFFFFFFu}));
    EXPECT_EQ(sentJson(0)["queryId"].asUInt(), 0xFFFFFFFFu);
    EXPECT_EQ(sentJson(1)["queryId"].asUInt(), 0u);
    EXPECT_EQ(uiQueryId, 1u);
}

TEST_F(TableTest, TimeoutOfAnUnknownIdDoesNothing)
{
    KIVO_DebugSet("info", 1);
    clearTerminal();
    backend().Timeout(5);
    EXPECT_TRUE(rec::recorder().terminal.empty());
    EXPECT_TRUE(rec::recorder().logs.empty());
}

TEST_F(TableTest, TimeoutAfterRecordsFinishesWithFound)
{
    boost::shared_ptr<FakeClient> client = search();
    Json::Value items;
    items.append(contactItem("Wefer"));
    items.append(contactItem("Wellbrook"));
    reply(0, Contacts, 2, items);
    ASSERT_EQ(client->contacts.size(), 2u);
    EXPECT_EQ(client->finishedCalls, 0);

    ASSERT_TRUE(expire(0));
    EXPECT_EQ(client->finishedCalls, 1);
    EXPECT_TRUE(client->finished);
    EXPECT_EQ(client->result, AbstractQueryClient::ResultFound);
    EXPECT_EQ(backend().openCount(), 0u);
}

TEST_F(TableTest, TimeoutWithoutRecordsFinishesWithNone)
{
    boost::shared_ptr<FakeClient> client = search();
    ASSERT_TRUE(expire(0));
    EXPECT_EQ(client->finishedCalls, 1);
    EXPECT_EQ(client->result, AbstractQueryClient::ResultNone);
    EXPECT_TRUE(rec::recorder().terminal.empty()) << "no trace with the info level off";
}

TEST_F(TableTest, TimeoutOfAChangeRequestCallsNobody)
{
    uiQueryId = 3;
    Contact contact;
    backend().addContact(&contact);
    KIVO_DebugSet("info", 1);
    clearTerminal();
    ASSERT_TRUE(expire(3));
    EXPECT_EQ(backend().openCount(), 0u);
    EXPECT_EQ(terminal(), "Timeout:676 query 3 finished by timer\n");
}

TEST_F(TableTest, TimerAfterTheAnswerChangesNothing)
{
    uiQueryId = 3;
    boost::shared_ptr<FakeClient> client = search();
    reply(3, Contacts, 0);
    ASSERT_EQ(client->finishedCalls, 1);
    KIVO_DebugSet("info", 1);
    clearTerminal();
    ASSERT_TRUE(expire(3));
    EXPECT_EQ(client->finishedCalls, 1) << "exactly one end per search";
    EXPECT_TRUE(rec::recorder().terminal.empty());
}

TEST_F(TableTest, EntryUnderARepeatedIdIsOverwrittenAndItsClientReleased)
{
    boost::shared_ptr<FakeClient> first = search();
    EXPECT_EQ(first.use_count(), 2) << "the entry holds one reference";
    uiQueryId = 0;
    Contact contact;
    backend().addContact(&contact);
    EXPECT_EQ(first.use_count(), 1) << "overwriting the entry drops the old client";
    EXPECT_EQ(backend().openIds(), std::vector<unsigned int>{0});
    PbBackend::QueryState state;
    ASSERT_TRUE(backend().lookup(0, &state));
    EXPECT_FALSE(state.client);
}

TEST_F(TableTest, FailedRequestMessageLeavesTheEntryForItsTimer)
{
    /* The timer's message is created first, the request's second. */
    rec::failNext(PltFault::Create, 4, 1);
    boost::shared_ptr<FakeClient> client = search();
    EXPECT_TRUE(rec::recorder().ipc.empty());
    EXPECT_EQ(rec::recorder().logCount("cMsg.Create failed\n"), 1u);
    EXPECT_EQ(rec::recorder().logs[0].function, "startQuery");
    EXPECT_EQ(rec::recorder().logs[0].line, 273);
    EXPECT_EQ(backend().openCount(), 1u);
    ASSERT_TRUE(expire(0));
    EXPECT_EQ(client->result, AbstractQueryClient::ResultNone);
    EXPECT_EQ(client->finishedCalls, 1);
}

TEST_F(TableTest, DestroyingTheBackendReleasesEveryClient)
{
    boost::shared_ptr<FakeClient> a = search();
    boost::shared_ptr<FakeClient> b = search();
    EXPECT_EQ(a.use_count(), 2);
    delete pBackend.exchange(nullptr);
    EXPECT_EQ(a.use_count(), 1);
    EXPECT_EQ(b.use_count(), 1);
    EXPECT_EQ(a->finishedCalls, 0) << "nobody is told at destruction";
}

}  // namespace
