/*
 * Replies of the daemon: delivery of contacts, events and folders, best
 * match, the end of a query, acknowledgements, invalid types and ids, the
 * cache-clear notice, and text that is not what it should be.
 */
#include "kivo_fixture.h"

using namespace ZEMBRA::Phonebook;

namespace {

class ResultTest : public KivoTest {
protected:
    void SetUp() override
    {
        KivoTest::SetUp();
        start();
        clearTerminal();
    }

    static Json::Value contacts(std::initializer_list<const char*> text3s)
    {
        Json::Value items(Json::arrayValue);
        int i = 0;
        for (const char* t : text3s)
            items.append(contactItem("C" + std::to_string(i++), t));
        return items;
    }
};

TEST_F(ResultTest, ContactsAreDeliveredThenTheEmptyReplyEndsTheSearch)
{
    boost::shared_ptr<FakeClient> client = search(NameAlpha, Json::Value("We"));
    reply(0, Contacts, 3, contacts({"", "", ""}));
    ASSERT_EQ(client->contacts.size(), 3u);
    for (const auto& d : client->contacts) {
        EXPECT_EQ(d.cacheInfo, 1);
        EXPECT_EQ(d.pattern, "We");
        EXPECT_EQ(d.count, 3);
        EXPECT_EQ(d.contact.backend, "vornsyn");
    }
    EXPECT_EQ(client->contacts[2].contact.lastName, "C2");
    EXPECT_TRUE(client->plainContacts.empty());
    PbBackend::QueryState state;
    ASSERT_TRUE(backend().lookup(0, &state));
    EXPECT_EQ(state.resultCount, 3);
    EXPECT_EQ(client->finishedCalls, 0);

    KIVO_DebugSet("info", 1);
    clearTerminal();
    reply(0, Contacts, 3);
    EXPECT_EQ(client->finishedCalls, 1);
    EXPECT_EQ(client->result, AbstractQueryClient::ResultFound);
    EXPECT_EQ(backend().openCount(), 0u);
    const auto& t = rec::recorder().terminal;
    EXPECT_EQ(t.back(), "Result:591 query 0 finished\n");
}

TEST_F(ResultTest, SearchAnsweredInSeveralRepliesCountsAcrossThem)
{
    boost::shared_ptr<FakeClient> client = search();
    reply(0, Contacts, 4, contacts({"", ""}));
    reply(0, Contacts, 4, contacts({"", ""}));
    PbBackend::QueryState state;
    ASSERT_TRUE(backend().lookup(0, &state));
    EXPECT_EQ(state.resultCount, 4);
    reply(0, Contacts, 4);
    EXPECT_EQ(client->contacts.size(), 4u);
    EXPECT_EQ(client->finishedCalls, 1);
}

TEST_F(ResultTest, EmptyFirstReplyFinishesWithNone)
{
    boost::shared_ptr<FakeClient> client = search();
    reply(0, Contacts, 0);
    EXPECT_EQ(client->finishedCalls, 1);
    EXPECT_EQ(client->result, AbstractQueryClient::ResultNone);
}

TEST_F(ResultTest, BestMatchKeepsTheLongestAndDeliversAtTheThreshold)
{
    boost::shared_ptr<FakeClient> client = search(Number, Json::Value("0711"), true);
    reply(0, Contacts, 3, contacts({"abcd", "abcdefg", "1234567"}));
    ASSERT_EQ(client->contacts.size(), 1u);
    EXPECT_EQ(client->contacts[0].contact.lastName, "C1") << "on equal length the earlier stays";
    EXPECT_EQ(client->contacts[0].count, 3);
    reply(0, Contacts, 3);
    EXPECT_EQ(client->contacts.size(), 1u) << "threshold reached: nothing more at the end";
    EXPECT_EQ(client->result, AbstractQueryClient::ResultFound);
}

TEST_F(ResultTest, BestMatchBelowTheThresholdIsDeliveredAtTheEnd)
{
    boost::shared_ptr<FakeClient> client = search(Number, Json::Value("0711"), true);
    reply(0, Contacts, 5, contacts({"ab", "abc"}));
    EXPECT_TRUE(client->contacts.empty());
    reply(0, Contacts, 5);
    ASSERT_EQ(client->contacts.size(), 1u);
    EXPECT_EQ(client->contacts[0].contact.lastName, "C1");
    EXPECT_EQ(client->finishedCalls, 1);
    EXPECT_EQ(client->result, AbstractQueryClient::ResultFound);
}

TEST_F(ResultTest, BestMatchWithTotalZeroOrOneDeliversEveryTime)
{
    for (int total : {0, 1}) {
        SCOPED_TRACE(total);
        rec::reset();
        resetModule();
        start();
        boost::shared_ptr<FakeClient> client = search(Number, Json::Value("0711"), true);
        reply(0, Contacts, total, contacts({"ab", "abcde", "abc"}));
        ASSERT_EQ(client->contacts.size(), 3u);
        EXPECT_EQ(client->contacts[0].contact.lastName, "C0");
        EXPECT_EQ(client->contacts[1].contact.lastName, "C1");
        EXPECT_EQ(client->contacts[2].contact.lastName, "C1");
        reply(0, Contacts, total);
        EXPECT_EQ(client->contacts.size(), 3u);
    }
}

TEST_F(ResultTest, RecordsAreDeliveredByTheirTypeWhateverTheSearch)
{
    boost::shared_ptr<FakeClient> client = search(Number, Json::Value("0711"), true);
    Json::Value events(Json::arrayValue);
    events.append(Json::Value(Json::objectValue));
    reply(0, Events, 0, events);
    reply(0, Folders, 0, events);
    EXPECT_EQ(client->events.size(), 1u);
    EXPECT_EQ(client->folders.size(), 1u);
    PbBackend::QueryState state;
    ASSERT_TRUE(backend().lookup(0, &state));
    EXPECT_EQ(state.resultCount, 2);
    reply(0, Contacts, 3);
    ASSERT_EQ(client->contacts.size(), 1u) << "counted records below total: the work contact is handed over";
    EXPECT_TRUE(client->contacts[0].contact.uid.empty());
    EXPECT_EQ(client->result, AbstractQueryClient::ResultFound);
}

TEST_F(ResultTest, BestMatchWithoutAnyContactDeliversNothing)
{
    boost::shared_ptr<FakeClient> client = search(Number, Json::Value("0711"), true);
    reply(0, Contacts, 5);
    EXPECT_TRUE(client->contacts.empty());
    EXPECT_EQ(client->result, AbstractQueryClient::ResultNone);
}

TEST_F(ResultTest, EventsAndFoldersAreDeliveredAndEnded)
{
    boost::shared_ptr<FakeClient> events = search(EventRange, Json::Value());
    boost::shared_ptr<FakeClient> folders = search(FolderList, Json::Value());
    Json::Value e;
    e["uid"] = "e1";
    e["number"] = "0711";
    Json::Value f;
    f["uid"] = "f1";
    f["name"] = "Gesch\xC3\xA4" "ft";
    Json::Value eventItems(Json::arrayValue), folderItems(Json::arrayValue);
    eventItems.append(e);
    folderItems.append(f);
    reply(0, Events, 0, eventItems);
    reply(1, Folders, 0, folderItems);
    ASSERT_EQ(events->events.size(), 1u);
    EXPECT_EQ(events->events[0].uid, "e1");
    ASSERT_EQ(folders->folders.size(), 1u);
    EXPECT_EQ(folders->folders[0].name, "Gesch\xE4" "ft") << "ISO-8859-1 inside";

    KIVO_DebugSet("info", 1);
    clearTerminal();
    reply(0, Events, 0);
    reply(1, Folders, 0);
    const auto& t = rec::recorder().terminal;
    std::vector<std::string> lines(t.begin(), t.end());
    auto has = [&](const std::string& s) { return std::find(lines.begin(), lines.end(), s) != lines.end(); };
    EXPECT_TRUE(has("Result:606\n"));
    EXPECT_TRUE(has("Result:613 query 0 finished\n"));
    EXPECT_TRUE(has("Result:629\n"));
    EXPECT_TRUE(has("Result:636 query 1 finished\n"));
    EXPECT_EQ(events->result, AbstractQueryClient::ResultFound);
    EXPECT_EQ(folders->result, AbstractQueryClient::ResultFound);
}

TEST_F(ResultTest, AcknowledgementEndsChangesAndSearches)
{
    Contact contact;
    backend().addContact(&contact);
    boost::shared_ptr<FakeClient> client = search();
    KIVO_DebugSet("info", 1);
    clearTerminal();
    reply(0, Acknowledge, 0);
    reply(1, Acknowledge, 0);
    EXPECT_EQ(backend().openCount(), 0u);
    EXPECT_EQ(client->finishedCalls, 1);
    EXPECT_EQ(client->result, AbstractQueryClient::ResultNone);
    const auto& t = rec::recorder().terminal;
    ASSERT_EQ(t.size(), 6u) << "each reply: its head line, its text and the acknowledge line";
    EXPECT_EQ(t[2], "Result:642 acknowledge\n");
    EXPECT_EQ(t[5], "Result:642 acknowledge\n");
}

TEST_F(ResultTest, ChangeEntryIgnoresRecordsAndEndsOnAnEmptyList)
{
    Contact contact;
    backend().addContact(&contact);
    reply(0, Contacts, 1, contacts({""}));
    EXPECT_EQ(backend().openCount(), 1u);
    KIVO_DebugSet("info", 1);
    clearTerminal();
    reply(0, Contacts, 0);
    EXPECT_EQ(backend().openCount(), 0u);
    const auto& t = rec::recorder().terminal;
    ASSERT_GE(t.size(), 2u);
    EXPECT_EQ(t[t.size() - 2], "Result:588 NULL\n");
    EXPECT_EQ(t.back(), "Result:591 query 0 finished\n");
}

TEST_F(ResultTest, InvalidTypeLeavesTheQueryOpen)
{
    boost::shared_ptr<FakeClient> client = search();
    KIVO_DebugSet("info", 1);
    for (int type : {4, 5, 99, -1}) {
        clearTerminal();
        reply(0, type, 0);
        EXPECT_EQ(rec::recorder().terminal.back(), "Result:651 abort: invalid type\n");
    }
    EXPECT_TRUE(rec::recorder().local.empty()) << "config-changed for an open id is no notice";
    EXPECT_EQ(backend().openCount(), 1u);
    EXPECT_EQ(client->finishedCalls, 0);
    ASSERT_TRUE(expire(0));
    EXPECT_EQ(client->finishedCalls, 1);
}

TEST_F(ResultTest, UnknownIdIsDroppedAndConfigChangeNotifies)
{
    KIVO_DebugSet("info", 1);
    clearTerminal();
    reply(0x1234, Contacts, 1, contacts({""}));
    EXPECT_EQ(rec::recorder().terminal.back(), "Result:543 abort: invalid id 1234\n");
    EXPECT_TRUE(rec::recorder().local.empty());

    reply(7, ConfigChanged, 0);
    reply(8, ConfigChanged, 0);
    const auto& local = rec::recorder().local;
    ASSERT_EQ(local.size(), 2u);
    for (const rec::LocalSend& l : local) {
        EXPECT_EQ(l.task, 64);
        EXPECT_EQ(l.msg.primitive, 0x00840002u);
        EXPECT_TRUE(l.msg.fields.empty());
    }
    EXPECT_EQ(rec::recorder().terminal.back(), "Result:543 abort: invalid id 8\n");
    const auto& calls = rec::recorder().calls;
    auto notice = std::find(calls.begin(), calls.end(), "local 64");
    auto trace = std::find(calls.begin(), calls.end(), "ui Result:543 abort: invalid id 7\n");
    EXPECT_LT(notice - calls.begin(), trace - calls.begin()) << "the notice comes before the trace";
}

TEST_F(ResultTest, FailedNoticeIsLoggedAsInformation)
{
    rec::failNext(PltFault::Create, 6);
    reply(3, ConfigChanged, 0);
    EXPECT_TRUE(rec::recorder().local.empty());
    const auto& logs = rec::recorder().logs;
    ASSERT_EQ(logs.size(), 1u);
    EXPECT_EQ(logs[0].level, 0);
    EXPECT_EQ(logs[0].file, "kivomain");
    EXPECT_EQ(logs[0].function, "ClaerCache_NotifyConfigChangeMessage");
    EXPECT_EQ(logs[0].line, 507);
    EXPECT_EQ(logs[0].text, "send failed iRetCode 6");
}

TEST_F(ResultTest, ReplyAfterTheTimerDeliversNothing)
{
    boost::shared_ptr<FakeClient> client = search();
    ASSERT_TRUE(expire(0));
    KIVO_DebugSet("info", 1);
    clearTerminal();
    reply(0, Contacts, 1, contacts({""}));
    reply(0, Contacts, 1);
    EXPECT_TRUE(client->contacts.empty());
    EXPECT_EQ(client->finishedCalls, 1);
    EXPECT_EQ(rec::recorder().terminal.back(), "Result:543 abort: invalid id 0\n");
}

TEST_F(ResultTest, TextThatIsNotAReplyLeavesEveryEntryAsItWas)
{
    boost::shared_ptr<FakeClient> client = search();
    reply(0, Contacts, 2, contacts({""}));
    const std::vector<std::string> bad = {
        "",
        "not json",
        "{\"queryId\": 0, \"type\": 0, \"items\": [",
        std::string(5000, '[') + std::string(5000, ']'),
        "\xFF\xFE{",
    };
    for (const std::string& text : bad)
        reply(text);
    EXPECT_TRUE(rec::recorder().terminal.empty());
    EXPECT_TRUE(rec::recorder().logs.empty());
    PbBackend::QueryState state;
    ASSERT_TRUE(backend().lookup(0, &state));
    EXPECT_EQ(state.resultCount, 1);
    EXPECT_EQ(client->finishedCalls, 0);
    ASSERT_TRUE(expire(0));
}

/* The reply reader is kept from one reply to the next. */
TEST_F(ResultTest, AReplyAfterTextThatFailedIsReadAsUsual)
{
    boost::shared_ptr<FakeClient> client = search();
    reply(std::string(5000, '[') + std::string(5000, ']'));
    reply("{\"queryId\": 0, \"type\": 0, \"items\": [");
    reply(0, Contacts, 1, contacts({""}));
    reply(0, Contacts, 1);
    ASSERT_EQ(client->contacts.size(), 1u);
    EXPECT_EQ(client->contacts[0].contact.lastName, "C0");
    EXPECT_EQ(client->finishedCalls, 1);
}

TEST_F(ResultTest, RepliesOfTheWrongShapeCannotHurt)
{
    boost::shared_ptr<FakeClient> client = search();
    const std::vector<std::string> odd = {
        "[]",
        "42",
        "{\"queryId\": \"0\", \"type\": 0, \"items\": []}",
        "{\"queryId\": 0.0, \"type\": 0, \"items\": []}",
        "{\"type\": 0, \"items\": []}",
        "{\"queryId\": -1, \"type\": 0}",
        "{\"queryId\": 1e40, \"type\": 0}",
        "{\"queryId\": 0, \"type\": \"0\", \"items\": []}",
        "{\"queryId\": 0, \"type\": 0, \"items\": {\"a\": 1}, \"total\": \"x\"}",
        "{\"queryId\": 0, \"type\": 0, \"items\": [1, \"x\", null, [], {\"lastName\": 5, \"numbers\": 7}], "
        "\"total\": 99999999999}",
    };
    for (const std::string& text : odd)
        reply(text);
    /* Only the one object among the items is a contact. */
    ASSERT_EQ(client->contacts.size(), 1u);
    EXPECT_EQ(client->contacts[0].contact.lastName, "");
    EXPECT_EQ(backend().openCount(), 1u);
    reply(0, Contacts, 0);
    EXPECT_EQ(client->finishedCalls, 1);
}

TEST_F(ResultTest, LongReplyTextIsTracedInAtMostTenPieces)
{
    KIVO_DebugSet("info", 1);
    clearTerminal();
    std::string text;
    for (int i = 0; text.size() < 12000; i++)
        text += static_cast<char>('a' + i % 26);
    reply(text);
    const auto& t = rec::recorder().terminal;
    ASSERT_EQ(t.size(), 11u);
    EXPECT_EQ(t[0], "Result:525 strResult \n");
    for (std::size_t i = 1; i < t.size(); i++)
        EXPECT_EQ(t[i].size(), 992u);
    EXPECT_EQ(terminal().substr(t[0].size()), text.substr(0, 9920));
}

TEST_F(ResultTest, ShortReplyTextIsTracedWhole)
{
    KIVO_DebugSet("info", 1);
    clearTerminal();
    const std::string text(992, 'x');
    reply(text);
    ASSERT_EQ(rec::recorder().terminal.size(), 2u);
    EXPECT_EQ(rec::recorder().terminal[1], text);
}

TEST_F(ResultTest, ClientMayStartANewSearchFromItsCallback)
{
    /* A client that searches again when its first search ends. */
    class Chaining : public FakeClient {
    public:
        void requestFinished() override
        {
            FakeClient::requestFinished();
            if (finishedCalls == 1)
                KIVO_ExpQuery(boost::shared_ptr<AbstractQueryClient>(new FakeClient()), Manager::SearchBackends);
        }
    };
    boost::shared_ptr<Chaining> client(new Chaining());
    ASSERT_EQ(KIVO_ExpQuery(client, Manager::SearchBackends), 0);
    reply(0, Contacts, 0);
    EXPECT_EQ(client->finishedCalls, 1);
    EXPECT_EQ(backend().openIds(), std::vector<unsigned int>{1});
    EXPECT_EQ(rec::fireAllTimers(), 2u);
    EXPECT_EQ(backend().openCount(), 0u);
}

}  // namespace
