/*
 * Requests on the wire: what each search mode and each change sends, read
 * back from the JSON text that left the module, with the traces of each.
 */
#include <stdexcept>

#include "kivo_fixture.h"

using namespace ZEMBRA::Phonebook;

namespace {

class RequestTest : public KivoTest {
protected:
    void SetUp() override
    {
        KivoTest::SetUp();
        start();
        clearTerminal();
    }
};

/* A contact whose JSON conversion can be counted. */
class CountingContact : public Contact {
public:
    using Contact::Contact;
    Json::Value toJson() const override
    {
        calls++;
        return Contact::toJson();
    }
    mutable int calls = 0;
};

class CountingEvent : public Event {
public:
    using Event::Event;
    Json::Value toJson() const override
    {
        calls++;
        return Event::toJson();
    }
    mutable int calls = 0;
};

/* A contact whose JSON conversion fails, as a library's may. */
class ThrowingContact : public Contact {
public:
    Json::Value toJson() const override { throw std::runtime_error("toJson"); }
};

TEST_F(RequestTest, NumberSearchCarriesItsParameters)
{
    uiQueryId = 41;
    boost::shared_ptr<FakeClient> client(new FakeClient(Number, Json::Value("0711234")));
    client->parameters.size = 100;
    client->requestPrimitive = 0x00830005;
    client->sourceAddress = "ui@Local";
    backend().startQuery(client);

    ASSERT_EQ(rec::recorder().ipc.size(), 1u);
    const rec::IpcSend& sent = rec::recorder().ipc[0];
    EXPECT_EQ(sent.msg.primitive, 0x00830005u);
    EXPECT_FALSE(sent.sourceNull);
    EXPECT_EQ(sent.source, "ui@Local");
    EXPECT_EQ(sent.destination, "webconfd@Local");
    ASSERT_EQ(sent.msg.fields.size(), 1u);

    const Json::Value r = sentJson(0);
    EXPECT_EQ(r["queryId"].asUInt(), 41u);
    EXPECT_EQ(r["userId"].asString(), "");
    EXPECT_EQ(r["params"]["kind"].asString(), "contact");
    EXPECT_EQ(r["params"]["type"].asInt(), 1);
    EXPECT_EQ(r["params"]["data"].asString(), "0711234");
    EXPECT_EQ(r["offset"].asInt(), 0);
    EXPECT_EQ(r["size"].asInt(), 100);
    EXPECT_EQ(uiQueryId, 42u);
    EXPECT_TRUE(rec::recorder().terminal.empty()) << "no trace with the info level off";
}

TEST_F(RequestTest, EachModeSelectsItsParameterRecordAndTrace)
{
    struct Case {
        int mode;
        const char* kind;   /* null: no parameter record */
        int type;
        const char* trace;
    };
    const Case cases[] = {
        {0, "contact", 0, "startQuery:204  mode: ID  offset 0  size 100\n"},
        {1, "contact", 1, "startQuery:228  mode: Number  offset 0  size 100\n"},
        {2, "contact", 2, "startQuery:210  mode: NameAlpha  offset 0  size 100\n"},
        {3, "contact", 3, "startQuery:216  mode: NameVanity offset 0  size 100\n"},
        {4, "contact", 4, "startQuery:222  mode: Index  offset 0  size 100\n"},
        {5, "event", 0, "startQuery:234  mode: EventRange  offset 0  size 100\n"},
        {6, "folder", 0, "startQuery:240  mode: FolderList  offset 0  size 100\n"},
        {7, nullptr, 0, "startQuery:246  mode: unknown  offset 0  size 100\n"},
        {-1, nullptr, 0, "startQuery:246  mode: unknown  offset 0  size 100\n"},
    };
    KIVO_DebugSet("info", 1);
    for (std::size_t i = 0; i < sizeof cases / sizeof cases[0]; i++) {
        SCOPED_TRACE(cases[i].mode);
        clearTerminal();
        search(static_cast<QueryMode>(cases[i].mode), Json::Value("v"));
        ASSERT_GE(rec::recorder().terminal.size(), 2u);
        EXPECT_EQ(rec::recorder().terminal[1], cases[i].trace);
        const Json::Value r = sentJson(i);
        if (cases[i].kind == nullptr) {
            EXPECT_TRUE(r["params"].isNull());
        } else {
            EXPECT_EQ(r["params"]["kind"].asString(), cases[i].kind);
            EXPECT_EQ(r["params"]["type"].asInt(), cases[i].type);
            EXPECT_EQ(r["params"]["data"].asString(), "v");
        }
    }
    EXPECT_EQ(backend().openCount(), 9u) << "every search, known mode or not, waits for its answer";
    rec::fireAllTimers();
}

TEST_F(RequestTest, SearchTracesEveryStepWithInfoLevel)
{
    KIVO_DebugSet("info", 1);
    clearTerminal();
    boost::shared_ptr<FakeClient> client(new FakeClient(NameVanity, Json::Value("9333")));
    client->parameters.offset = 3;
    client->parameters.size = 7;
    client->parameters.userId = "u1";
    backend().startQuery(client);
    const std::string text = rec::recorder().ipc.at(0).msg.string(0);
    EXPECT_NE(text.find('\n'), std::string::npos) << "the styled, multi-line form";
    EXPECT_EQ(terminal(), "startQuery:182  QueryId 0\n"
                          "startQuery:216  mode: NameVanity offset 3  size 7\n"
                          "startQuery:252 userid u1\n"
                          "startQuery:267 strRequest " + text + "\n"
                          "Source address:  Destination address: webconfd@Local\n");
    EXPECT_EQ(sentJson(0)["userId"].asString(), "u1");
}

TEST_F(RequestTest, SecondSearchGetsTheNextIdAndItsOwnEntry)
{
    boost::shared_ptr<FakeClient> a = search();
    EXPECT_EQ(backend().openIds(), std::vector<unsigned int>{0}) << "the entry exists once the request is out";
    boost::shared_ptr<FakeClient> b = search();
    EXPECT_EQ(backend().openIds(), (std::vector<unsigned int>{0, 1}));
    const auto& calls = rec::recorder().calls;
    auto timer = std::find(calls.begin(), calls.end(), "timer 67 5000");
    auto sent = std::find(calls.begin(), calls.end(), "ipc webconfd@Local");
    EXPECT_LT(timer - calls.begin(), sent - calls.begin()) << "the timer runs before the request leaves";
    rec::fireAllTimers();
}

TEST_F(RequestTest, ContactChangesCarryTheRecordOrItsUid)
{
    CountingContact contact("source", "u-17", "", "Tilmo", "Wefer", "H\xF6strand", boost::none);
    contact.numbers.push_back(ContactNumber("", "011122233344", "", "", 1, 2, -1));
    backend().addContact(&contact);
    backend().deleteContact(&contact);
    EXPECT_EQ(contact.calls, 1) << "only the add converts the contact";

    const auto& ipc = rec::recorder().ipc;
    ASSERT_EQ(ipc.size(), 2u);
    for (const rec::IpcSend& s : ipc) {
        EXPECT_EQ(s.msg.primitive, 0x00830001u);
        EXPECT_TRUE(s.sourceNull);
        EXPECT_EQ(s.destination, "webconfd@Local");
    }
    const Json::Value add = sentJson(0);
    EXPECT_EQ(add["queryId"].asUInt(), 0u);
    EXPECT_EQ(add["userId"].asString(), "");
    EXPECT_EQ(add["offset"].asInt(), 0);
    EXPECT_EQ(add["params"]["kind"].asString(), "contact");
    EXPECT_EQ(add["params"]["type"].asInt(), 5);
    EXPECT_EQ(add["params"]["data"]["lastName"].asString(), "Wefer");
    EXPECT_EQ(add["params"]["data"]["company"].asString(), "H\xC3\xB6strand") << "UTF-8 on the wire";
    EXPECT_EQ(add["params"]["data"]["numbers"][0]["number"].asString(), "011122233344");

    const Json::Value del = sentJson(1);
    EXPECT_EQ(del["queryId"].asUInt(), 1u);
    EXPECT_EQ(del["params"]["type"].asInt(), 6);
    EXPECT_EQ(del["params"]["data"], Json::Value("u-17"));
    EXPECT_EQ(backend().openCount(), 2u);
    EXPECT_EQ(rec::recorder().timers.size(), 2u);
    rec::fireAllTimers();
}

TEST_F(RequestTest, DeleteWithEmptyUidStillSends)
{
    Contact contact;
    backend().deleteContact(&contact);
    EXPECT_EQ(sentJson(0)["params"]["data"], Json::Value(""));
    rec::fireAllTimers();
}

TEST_F(RequestTest, ContactChangeTracesInOrder)
{
    KIVO_DebugSet("info", 1);
    clearTerminal();
    Contact contact("source", "u-1", "", "Elka", "St\xF6" "be", "", boost::none);
    backend().addContact(&contact);
    const auto& t = rec::recorder().terminal;
    ASSERT_EQ(t.size(), 4u);
    EXPECT_EQ(t[0], "addContact:293\n");
    EXPECT_EQ(t[1], "addContact:294 contact->getLastName  St\xF6" "be\n");
    EXPECT_EQ(t[2], "addContact:295 contact->getFirstName Elka\n");
    EXPECT_EQ(t[3], "addContact:324 strRequest " + rec::recorder().ipc[0].msg.string(0) + "\n");

    clearTerminal();
    backend().deleteContact(&contact);
    ASSERT_EQ(t.size(), 3u);
    EXPECT_EQ(t[0], "deleteContact:349\n");
    EXPECT_EQ(t[1], "deleteContact:350 contact->getUid u-1\n");
    EXPECT_EQ(t[2], "deleteContact:378 strRequest " + rec::recorder().ipc[1].msg.string(0) + "\n");
    rec::fireAllTimers();
}

TEST_F(RequestTest, EventChangesCarryTheRecordOrItsUid)
{
    KIVO_DebugSet("info", 1);
    clearTerminal();
    CountingEvent event("source", "ev-3", Event::Missed, "0711", "Wefer", 1700000000, 0);
    backend().addEvent(&event);
    const auto& t = rec::recorder().terminal;
    ASSERT_EQ(t.size(), 2u);
    EXPECT_EQ(t[0], "addEvent:403\n");
    EXPECT_EQ(t[1], "addEvent:432 strRequest " + rec::recorder().ipc[0].msg.string(0) + "\n");
    clearTerminal();
    backend().deleteEvent(&event);
    ASSERT_EQ(t.size(), 3u);
    EXPECT_EQ(t[0], "deleteEvent:457\n");
    EXPECT_EQ(t[1], "deleteEvent:458 event->getUid ev-3\n");
    EXPECT_EQ(event.calls, 1);

    const Json::Value add = sentJson(0);
    EXPECT_EQ(add["params"]["kind"].asString(), "event");
    EXPECT_EQ(add["params"]["type"].asInt(), 2);
    EXPECT_EQ(add["params"]["data"]["uid"].asString(), "ev-3");
    EXPECT_EQ(add["params"]["data"]["timestamp"].asInt64(), 1700000000);
    const Json::Value del = sentJson(1);
    EXPECT_EQ(del["params"]["type"].asInt(), 3);
    EXPECT_EQ(del["params"]["data"], Json::Value("ev-3"));
    EXPECT_EQ(del["queryId"].asUInt(), add["queryId"].asUInt() + 1);
    rec::fireAllTimers();
}

TEST_F(RequestTest, FailedChangeMessageIsLoggedAtEveryLevel)
{
    struct Case {
        void (PbBackend::*contactOp)(Contact*);
        void (PbBackend::*eventOp)(Event*);
        const char* function;
        int line;
    };
    const Case cases[] = {
        {&PbBackend::addContact, nullptr, "addContact", 330},
        {&PbBackend::deleteContact, nullptr, "deleteContact", 384},
        {nullptr, &PbBackend::addEvent, "addEvent", 438},
        {nullptr, &PbBackend::deleteEvent, "deleteEvent", 492},
    };
    Contact contact;
    Event event;
    for (const Case& c : cases) {
        rec::recorder().logs.clear();
        /* The timer's message is created first, the request's second. */
        rec::failNext(PltFault::Create, 3, 1);
        if (c.contactOp)
            (backend().*c.contactOp)(&contact);
        else
            (backend().*c.eventOp)(&event);
        ASSERT_EQ(rec::recorder().logs.size(), 1u) << c.function;
        EXPECT_EQ(rec::recorder().logs[0].level, 1);
        EXPECT_EQ(rec::recorder().logs[0].function, c.function);
        EXPECT_EQ(rec::recorder().logs[0].line, c.line);
        EXPECT_EQ(rec::recorder().logs[0].text, "cMsg.Create failed\n");
    }
    EXPECT_TRUE(rec::recorder().ipc.empty());
    EXPECT_EQ(uiQueryId, 4u) << "the ids are used even though nothing was sent";
    EXPECT_EQ(backend().openCount(), 4u) << "the entries wait for their timers";
    EXPECT_EQ(rec::fireAllTimers(), 4u);
    EXPECT_EQ(backend().openCount(), 0u);
}

TEST_F(RequestTest, ThrowingToJsonLeavesTheCounterAndTheEntry)
{
    uiQueryId = 7;
    ThrowingContact broken;
    EXPECT_THROW(backend().addContact(&broken), std::runtime_error);
    EXPECT_EQ(uiQueryId, 7u) << "the counter is raised only once the request is built";
    EXPECT_EQ(backend().openIds(), std::vector<unsigned int>{7}) << "the entry and its timer stay";
    EXPECT_EQ(rec::pendingTimers(), 1u);
    EXPECT_TRUE(rec::recorder().ipc.empty());
    Contact contact;
    backend().addContact(&contact);
    EXPECT_EQ(sentJson(0)["queryId"].asUInt(), 7u) << "the next request takes the same id";
    EXPECT_EQ(uiQueryId, 8u);
    EXPECT_EQ(rec::fireAllTimers(), 2u);
    EXPECT_EQ(backend().openCount(), 0u);
}

TEST_F(RequestTest, SearchTextIsSentAsUtf8)
{
    search(NameAlpha, Json::Value("\xD6hl"));
    EXPECT_EQ(sentJson(0)["params"]["data"].asString(), "\xC3\x96hl");
    rec::fireAllTimers();
}

TEST_F(RequestTest, OversizedRequestIsRefusedNotTruncated)
{
    search(NameAlpha, Json::Value(std::string(MAN_MAX_MSG, 'x')));
    EXPECT_TRUE(rec::recorder().ipc.empty());
    EXPECT_EQ(rec::recorder().logs.size(), 1u);
    EXPECT_EQ(rec::recorder().logs[0].level, 1);
    rec::fireAllTimers();
}

}  // namespace
