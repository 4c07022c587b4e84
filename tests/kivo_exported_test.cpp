/*
 * The exported functions: the interface switch, the trace levels and their
 * dumps, and the hand-over to the manager.
 */
#include "kivo_fixture.h"

using namespace ZEMBRA::Phonebook;

namespace {

/* A backend that only records what the manager hands it. */
class RecordingBackend : public SearchBackendInterface {
public:
    std::string id() const override { return "rec"; }
    void startQuery(boost::shared_ptr<AbstractQueryClient> client) override { clients.push_back(client); }
    void addContact(Contact* c) override { added.push_back(c); }
    void deleteContact(Contact* c) override { deleted.push_back(c); }
    void addEvent(Event* e) override { addedEvents.push_back(e); }
    void deleteEvent(Event* e) override { deletedEvents.push_back(e); }

    std::vector<boost::shared_ptr<AbstractQueryClient>> clients;
    std::vector<Contact*> added, deleted;
    std::vector<Event*> addedEvents, deletedEvents;
};

class ExportedTest : public KivoTest {
protected:
    void SetUp() override
    {
        KivoTest::SetUp();
        start();
        pManager.load()->registerBackend(&fake);
        clearTerminal();
    }
    void TearDown() override
    {
        fake.clients.clear();
        KivoTest::TearDown();
    }
    RecordingBackend fake;
};

TEST_F(ExportedTest, EnabledCallsReachTheManagerWithTheSameArguments)
{
    boost::shared_ptr<FakeClient> client(new FakeClient());
    Contact contact;
    Event event;
    EXPECT_EQ(KIVO_ExpQuery(client, Manager::SearchBackends), 0);
    EXPECT_EQ(KIVO_ExpAddContact(&contact), 0);
    EXPECT_EQ(KIVO_ExpDelContact(&contact), 0);
    EXPECT_EQ(KIVO_ExpAddEvent(&event), 0);
    EXPECT_EQ(KIVO_ExpDelEvent(&event), 0);
    ASSERT_EQ(fake.clients.size(), 1u);
    EXPECT_EQ(fake.clients[0], client);
    EXPECT_EQ(fake.added, std::vector<Contact*>{&contact});
    EXPECT_EQ(fake.deleted, std::vector<Contact*>{&contact});
    EXPECT_EQ(fake.addedEvents, std::vector<Event*>{&event});
    EXPECT_EQ(fake.deletedEvents, std::vector<Event*>{&event});
    EXPECT_TRUE(rec::recorder().logs.empty());
    EXPECT_TRUE(rec::recorder().terminal.empty());
}

TEST_F(ExportedTest, SwitchedOffEveryCallIsRefusedAndLogged)
{
    KIVO_SetIfcEnable(0);
    boost::shared_ptr<FakeClient> client(new FakeClient());
    Contact contact;
    Event event;
    EXPECT_EQ(KIVO_ExpQuery(client, Manager::SearchBackends), 1);
    EXPECT_EQ(client->finishedCalls, 1);
    EXPECT_FALSE(client->finished) << "refused: no backendHasFinished";
    EXPECT_EQ(client.use_count(), 1) << "the client is not kept";
    EXPECT_EQ(KIVO_ExpAddContact(&contact), 1);
    EXPECT_EQ(KIVO_ExpDelContact(&contact), 1);
    EXPECT_EQ(KIVO_ExpAddEvent(&event), 1);
    EXPECT_EQ(KIVO_ExpDelEvent(&event), 1);
    EXPECT_TRUE(fake.clients.empty());
    EXPECT_TRUE(fake.added.empty() && fake.deleted.empty() && fake.addedEvents.empty() && fake.deletedEvents.empty());

    const auto& logs = rec::recorder().logs;
    const std::vector<std::pair<std::string, int>> expected = {
        {"KIVO_ExpQuery", 94},     {"KIVO_ExpAddContact", 111}, {"KIVO_ExpDelContact", 127},
        {"KIVO_ExpAddEvent", 143}, {"KIVO_ExpDelEvent", 159},
    };
    ASSERT_EQ(logs.size(), expected.size());
    for (std::size_t i = 0; i < logs.size(); i++) {
        EXPECT_EQ(logs[i].level, 0);
        EXPECT_EQ(logs[i].file, "kivoexp");
        EXPECT_EQ(logs[i].function, expected[i].first);
        EXPECT_EQ(logs[i].line, expected[i].second);
        EXPECT_EQ(logs[i].text, "kivo-interface disabled");
    }
}

TEST_F(ExportedTest, AnyNonZeroSwitchValueEnables)
{
    EXPECT_EQ(KIVO_GetIfcEnable(), 1);
    EXPECT_EQ(KIVO_SetIfcEnable(0), 0);
    Contact contact;
    EXPECT_EQ(KIVO_ExpAddContact(&contact), 1);
    EXPECT_EQ(KIVO_SetIfcEnable(5), 0);
    EXPECT_EQ(KIVO_GetIfcEnable(), 5);
    EXPECT_EQ(KIVO_ExpAddContact(&contact), 0);
    KIVO_SetIfcEnable(2);
    EXPECT_EQ(KIVO_ExpAddContact(&contact), 0);
    clearTerminal();
    KIVO_SetIfcEnable(5);
    KIVO_DumpDb();
    EXPECT_EQ(terminal(), "kivo\n'--iIfcEnable        5\n");
}

TEST_F(ExportedTest, ExpLevelTracesExportedAndManagerCalls)
{
    KIVO_DebugSet("exp", 1);
    clearTerminal();
    Contact contact;
    KIVO_ExpAddContact(&contact);
    char expected[128];
    std::snprintf(expected, sizeof expected, "KIVO_ExpAddContact  pContact %p\nKIVO_AddContact  pContact %p\n",
                  static_cast<void*>(&contact), static_cast<void*>(&contact));
    EXPECT_EQ(terminal(), expected);

    clearTerminal();
    Event event;
    KIVO_ExpDelEvent(&event);
    std::snprintf(expected, sizeof expected, "KIVO_ExpDelEvent  pEvent %p\nKIVO_DelEvent  pEvent %p\n",
                  static_cast<void*>(&event), static_cast<void*>(&event));
    EXPECT_EQ(terminal(), expected);

    clearTerminal();
    KIVO_ExpQuery(boost::shared_ptr<AbstractQueryClient>(new FakeClient()), Manager::SearchBackends);
    EXPECT_EQ(terminal(), "KIVO_ExpQuery  searchMode 1\n");

    clearTerminal();
    KIVO_SetIfcEnable(0);
    KIVO_ExpAddEvent(&event);
    std::snprintf(expected, sizeof expected, "KIVO_ExpAddEvent  pEvent %p\n", static_cast<void*>(&event));
    EXPECT_EQ(terminal(), expected) << "a refused call writes only its own trace";
}

TEST_F(ExportedTest, DebugSetMatchesWholeNamesOnly)
{
    KIVO_DebugSet("info", 1);
    EXPECT_EQ(KIVODebugLevel[1], 1);
    KIVO_DebugSet("info", 2);
    EXPECT_EQ(KIVODebugLevel[1], 0) << "only exactly 1 switches on";
    KIVO_DebugSet("exp", 1);
    clearTerminal();
    KIVO_DebugSet("all", 1);
    KIVO_DebugSet("INFO", 1);
    KIVO_DebugSet("ex", 1);
    KIVO_DebugSet("exp", -1);
    EXPECT_EQ(terminal(), "KIVO_DebugSet pName all  iValue 1\n"
                          "KIVO_DebugSet pName INFO  iValue 1\n"
                          "KIVO_DebugSet pName ex  iValue 1\n"
                          "KIVO_DebugSet pName exp  iValue -1\n");
    EXPECT_EQ(KIVODebugLevel[0], 0);
    EXPECT_EQ(KIVODebugLevel[1], 0);
}

TEST_F(ExportedTest, DebugDumpShowsBothLevels)
{
    KIVO_DebugDump();
    EXPECT_EQ(terminal(), "KIVO_DebugDump\n"
                          "idx name       status\n"
                          "----------------------\n"
                          " 0  exp        0\n"
                          " 1  info       0\n");
    KIVO_DebugSet("info", 1);
    clearTerminal();
    KIVO_DebugDump();
    EXPECT_EQ(rec::recorder().terminal.back(), " 1  info       1\n");
}

}  // namespace
