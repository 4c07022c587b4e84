/*
 * The kivo console: line matching, argument reading, the test client's
 * result table and its limit, "del", and the sample contacts of "add".
 */
#include "kivo_fixture.h"

using namespace ZEMBRA::Phonebook;

namespace {

/* Stands in for the backend so a test can answer the console's client
 * with any contact and see what "add" and "del" hand over. */
class ConsoleBackend : public SearchBackendInterface {
public:
    std::string id() const override { return "console"; }
    void startQuery(boost::shared_ptr<AbstractQueryClient> client) override { clients.push_back(client); }
    void addContact(Contact* c) override { added.push_back(*c); }
    void deleteContact(Contact* c) override { deleted.push_back(*c); }
    void addEvent(Event*) override {}
    void deleteEvent(Event*) override {}

    std::vector<boost::shared_ptr<AbstractQueryClient>> clients;
    std::vector<Contact> added;
    std::vector<Contact> deleted;
};

const char kListing[] =
    "\n"
    "= KIVO ===================================\n"
    "help                 help\n"
    "get                  get something\n"
    "set                  set something\n"
    "q                    quit\n"
    "ti                   trace info\n"
    "ts                   trace set\n"
    "name                 search by Name\n"
    "id                   search by ID\n"
    "number               search by Number\n"
    "index                search by index\n"
    "add                  add contact\n"
    "del                  delete contact\n"
    "dd                   dump database\n"
    "si                   set interface [0|1]\n"
    "==========================================\n";

const char kHeader[] =
    "idx name                  firstname             uid                   backend\n"
    "------------------------------------------------------------------------------------\n";

class ConsoleTest : public KivoTest {
protected:
    void SetUp() override
    {
        KivoTest::SetUp();
        start();
        clearTerminal();
    }

    int line(const char* text) { return KIVO_Interpreter(text); }

    /* The console's search, answered by the stand-in backend. */
    boost::shared_ptr<AbstractQueryClient> searchVia(ConsoleBackend& fake, const char* command)
    {
        pManager.load()->registerBackend(&fake);
        line(command);
        return fake.clients.empty() ? nullptr : fake.clients.back();
    }
};

Contact sample(const std::string& last, int numbers, const std::string& backend = "vornsyn")
{
    Contact c(backend, "uid-" + last, "", "First", last, "", boost::none);
    for (int i = 0; i < numbers; i++)
        c.numbers.push_back(ContactNumber("", "0711-" + std::to_string(i), "", "", i + 1, 2 * i, -1));
    return c;
}

TEST_F(ConsoleTest, EmptyLineAndHelpPrintTheListing)
{
    EXPECT_EQ(line(""), 0);
    EXPECT_EQ(terminal(), kListing);
    for (const char* l : {"help", "HeLp", "Help me", "helpme"}) {
        clearTerminal();
        EXPECT_EQ(line(l), 0);
        EXPECT_EQ(terminal(), kListing) << l;
    }
}

TEST_F(ConsoleTest, KeysMatchByCaseInsensitivePrefixOnly)
{
    for (const char* l : {"q", "quit", "Queue"})
        EXPECT_EQ(line(l), 0);
    EXPECT_EQ(rec::recorder().dtmReturns, 3);
    EXPECT_TRUE(rec::recorder().terminal.empty()) << "q prints nothing";

    for (const char* l : {" help", "s", "t", "d", "i", "xyz"}) {
        clearTerminal();
        EXPECT_EQ(line(l), 0);
        EXPECT_EQ(terminal(), "unknown command\n") << l;
    }
    clearTerminal();
    line("GET");
    line("set it");
    EXPECT_EQ(terminal(), "CmdGet\nCmdSet\n");
}

TEST_F(ConsoleTest, OnlyTheTraceCommandsReturnOne)
{
    EXPECT_EQ(line("ti"), 1);
    EXPECT_EQ(line("ts info 1"), 1);
    EXPECT_EQ(line("dd"), 0);
    EXPECT_EQ(line("si 1"), 0);
    EXPECT_EQ(line("del 3"), 0);
    EXPECT_EQ(line("nonsense"), 0);
}

TEST_F(ConsoleTest, TraceSetReadsNameAndLevel)
{
    EXPECT_EQ(line("ts   info   1"), 1);
    EXPECT_EQ(KIVODebugLevel[1], 1);
    EXPECT_EQ(terminal(), "CmdTraceSet\n"
                          "KIVO_DebugSet pName info  iValue 1\n"
                          "KIVO_DebugDump\n"
                          "idx name       status\n"
                          "----------------------\n"
                          " 0  exp        0\n"
                          " 1  info       1\n");
    clearTerminal();
    line("ts exp");
    EXPECT_EQ(rec::recorder().terminal.at(1), "KIVO_DebugSet pName exp  iValue 0\n");
}

TEST_F(ConsoleTest, LongWordsAreCutAndWhatFollowsIsStillRead)
{
    /* The platform's GetString writes the whole word, whatever its length:
     * the console cuts it to its buffer (11 characters for a trace name, 31
     * for a search word), skips the rest of the word and reads on. */
    const std::string letters = "abcdefghijklmnopqrstuvwxyz0123456789";
    for (std::size_t length : {11u, 12u, 31u, 32u, 200u}) {
        std::string word;
        while (word.size() < length)
            word += letters[word.size() % letters.size()];
        SCOPED_TRACE(length);
        clearTerminal();
        line(("ts " + word + " 1").c_str());
        EXPECT_EQ(rec::recorder().terminal.at(1), "KIVO_DebugSet pName " + word.substr(0, 11) + "  iValue 1\n");
        clearTerminal();
        line(("name " + word).c_str());
        EXPECT_EQ(rec::recorder().terminal.at(1), "KIVO_TFSearchByName  strName " + word.substr(0, 31) + "\n");
    }
    rec::fireAllTimers();
}

TEST_F(ConsoleTest, SetInterfacePrintsTheNewValue)
{
    line("si 0");
    EXPECT_EQ(terminal(), "CmdSetInterface\nCmdSetInterface  KIVO_GetIfcEnable() 0\n");
    clearTerminal();
    line("si 7");
    EXPECT_EQ(terminal(), "CmdSetInterface\nCmdSetInterface  KIVO_GetIfcEnable() 7\n");
    line("si");
    EXPECT_EQ(KIVO_GetIfcEnable(), 0) << "no number reads as 0";
    clearTerminal();
    line("dd");
    EXPECT_EQ(terminal(), "CmdDumpDB\nkivo\n'--iIfcEnable        0\n");
}

TEST_F(ConsoleTest, SearchCommandsSendTheirWordAndMode)
{
    struct Case {
        const char* line;
        const char* trace;
        int type;
        const char* value;
    };
    const Case cases[] = {
        {"name   Smith", "KIVO_TFSearchByName  strName Smith\n", 2, "Smith"},
        {"idABC", "KIVO_TFSearchByID  id ABC\n", 0, "ABC"},
        {"number 0711 234", "KIVO_TFSearchByNumber  strNumber 0711\n", 1, "0711"},
        {"index 5", "KIVO_TFSearchByIndex  strName 5\n", 4, "5"},
        {"name", "KIVO_TFSearchByName  strName \n", 2, ""},
    };
    for (std::size_t i = 0; i < sizeof cases / sizeof cases[0]; i++) {
        SCOPED_TRACE(cases[i].line);
        clearTerminal();
        EXPECT_EQ(line(cases[i].line), 0);
        ASSERT_GE(rec::recorder().terminal.size(), 2u);
        EXPECT_EQ(rec::recorder().terminal[1], cases[i].trace);
        const rec::IpcSend& sent = rec::recorder().ipc.at(i);
        EXPECT_EQ(sent.msg.primitive, 0u);
        EXPECT_FALSE(sent.sourceNull);
        EXPECT_EQ(sent.source, "");
        const Json::Value r = sentJson(i);
        EXPECT_EQ(r["params"]["type"].asInt(), cases[i].type);
        EXPECT_EQ(r["params"]["data"], Json::Value(cases[i].value));
        EXPECT_EQ(r["offset"].asInt(), 0);
        EXPECT_EQ(r["size"].asInt(), 100);
    }
    rec::fireAllTimers();
}

TEST_F(ConsoleTest, ResultTableShowsContactsWithTheirNumbers)
{
    line("name W");
    Json::Value items(Json::arrayValue);
    Json::Value c = contactItem("Wefer");
    c["firstName"] = "Tilmo";
    c["numbers"].append(c["numbers"][0]);
    c["numbers"].append(c["numbers"][0]);
    c["numbers"][1]["number"] = "0049 711 2";
    c["numbers"][0]["value1"] = 1;
    c["numbers"][0]["value2"] = 2;
    items.append(c);
    Json::Value lone = contactItem("Abcdefghijklmnopqrstuvwxy");
    items.append(lone);
    Json::Value none = contactItem("St\xF6" "be");
    none["numbers"] = Json::Value(Json::arrayValue);
    items.append(none);
    reply(0, Contacts, 3, items);
    clearTerminal();
    reply(0, Contacts, 3);
    EXPECT_EQ(terminal(), std::string(kHeader) +
                              " 0) Wefer                 Tilmo                 uid-Wefer             vornsyn   \n"
                              "    |--  0 * 0711                               1 2\n"
                              "    |--  1   0049 711 2                         0 0\n"
                              "    '--  2   0711                               0 0\n"
                              " 1) Abcdefghijklmnopqrst  F                     uid-Abcdefghijklmnop  vornsyn   \n"
                              "    '--  0 * 0711                               0 0\n"
                              " 2) St\xF6" "be                 F                     uid-St\xF6" "be             vornsyn   \n");
}

TEST_F(ConsoleTest, TableCutsLongBackendsAndKeepsAtMostElevenContacts)
{
    ConsoleBackend fake;
    boost::shared_ptr<AbstractQueryClient> client = searchVia(fake, "name W");
    ASSERT_TRUE(client);
    for (int i = 0; i < 15; i++)
        client->addContact(sample("N" + std::to_string(i), 0, "backend-1234"), AbstractQueryClient::CacheRemote,
                           "W", 15);
    client->addContact(sample("Plain", 0), AbstractQueryClient::CacheRemote);
    clearTerminal();
    client->backendHasFinished(AbstractQueryClient::ResultFound);
    const auto& t = rec::recorder().terminal;
    ASSERT_EQ(t.size(), 2u + 11u) << "header, rule and 11 rows";
    EXPECT_EQ(t[2], " 0) N0                    First                 uid-N0                backend-12\n");
    EXPECT_EQ(t[12].substr(0, 8), "10) N10 ");
    fake.clients.clear();
}

TEST_F(ConsoleTest, DeliveriesAreTracedEvenWhenDropped)
{
    ConsoleBackend fake;
    boost::shared_ptr<AbstractQueryClient> client = searchVia(fake, "name W");
    clearTerminal();
    for (int i = 0; i < 12; i++)
        client->addContact(sample("N", 1), AbstractQueryClient::CacheRemote, "W\xF6", 12);
    client->addContact(sample("N", 1), AbstractQueryClient::CacheRemote);
    const auto& t = rec::recorder().terminal;
    ASSERT_EQ(t.size(), 13u);
    EXPECT_EQ(t[0], "addContact:923  strSearchPattern W\xF6  iCountFound 12\n");
    EXPECT_EQ(t[12], "addContact:903\n");
    fake.clients.clear();
}

TEST_F(ConsoleTest, DeleteHandsOverTheListedContact)
{
    ConsoleBackend fake;
    boost::shared_ptr<AbstractQueryClient> client = searchVia(fake, "name W");
    client->addContact(sample("Wefer", 1), AbstractQueryClient::CacheRemote, "W", 1);
    client->backendHasFinished(AbstractQueryClient::ResultFound);
    fake.clients.clear();

    clearTerminal();
    line("del 0");
    ASSERT_EQ(fake.deleted.size(), 1u);
    EXPECT_EQ(fake.deleted[0].uid, "uid-Wefer");
    EXPECT_EQ(terminal(), "CmdDelContact\nKIVO_TFDelete:956  iIndex 0\n");

    for (const char* l : {"del 1", "del -1"}) {
        clearTerminal();
        line(l);
        EXPECT_EQ(rec::recorder().terminal.back(), "KIVO_TFDelete:958  invalid iIndex\n") << l;
    }
    EXPECT_EQ(fake.deleted.size(), 1u);
    line("del");
    EXPECT_EQ(fake.deleted.size(), 2u) << "no number reads as row 0, which stays listed after a delete";
}

TEST_F(ConsoleTest, NewSearchClearsTheList)
{
    ConsoleBackend fake;
    boost::shared_ptr<AbstractQueryClient> client = searchVia(fake, "name W");
    client->addContact(sample("Wefer", 1), AbstractQueryClient::CacheRemote, "W", 1);
    line("name X");
    clearTerminal();
    line("del 0");
    EXPECT_TRUE(fake.deleted.empty());
    EXPECT_EQ(rec::recorder().terminal.back(), "KIVO_TFDelete:958  invalid iIndex\n");
    fake.clients.clear();
}

TEST_F(ConsoleTest, RefusedSearchPrintsTheEmptyTable)
{
    line("si 0");
    clearTerminal();
    line("name W");
    EXPECT_EQ(terminal(), std::string("CmdSearchByName\nKIVO_TFSearchByName  strName W\n") + kHeader);
    EXPECT_TRUE(rec::recorder().ipc.empty());
}

TEST_F(ConsoleTest, AddHandsOverTheSampleContacts)
{
    ConsoleBackend fake;
    pManager.load()->registerBackend(&fake);
    for (const char* l : {"add 1", "add 2", "add 3", "add 0", "add 7", "add"})
        EXPECT_EQ(line(l), 0);
    ASSERT_EQ(fake.added.size(), 6u);

    const Contact& one = fake.added[0];
    EXPECT_EQ(one.backend, "source");
    EXPECT_EQ(one.uid, "");
    EXPECT_EQ(one.firstName, "Tilmo");
    EXPECT_EQ(one.lastName, "Wefer");
    EXPECT_EQ(one.company, "\x48\xF6\x73\x74\x72\x61\x6E\x64");
    EXPECT_FALSE(one.optionalText);
    ASSERT_EQ(one.numbers.size(), 1u);
    EXPECT_EQ(one.numbers[0], ContactNumber("", "011122233344", "", "", 1, 2, -1));

    EXPECT_EQ(fake.added[1].lastName, "Wellbrook");
    EXPECT_EQ(fake.added[1].company, "Mittelwinkel GmbH");
    EXPECT_TRUE(fake.added[1].numbers.empty());
    EXPECT_EQ(fake.added[2].lastName, std::string("St\xF6" "be"));
    EXPECT_EQ(fake.added[2].company, std::string("L\xFCnbeck"));
    EXPECT_TRUE(fake.added[2].numbers.empty());
    for (std::size_t i = 3; i < 6; i++) {
        EXPECT_EQ(fake.added[i].firstName, "Falmer");
        EXPECT_EQ(fake.added[i].lastName, std::string("\xD6hlenbach"));
        EXPECT_EQ(fake.added[i].company, "Olva");
        EXPECT_TRUE(fake.added[i].numbers.empty());
    }
}

TEST_F(ConsoleTest, AddedSampleTravelsAsUtf8)
{
    line("add 1");
    ASSERT_EQ(rec::recorder().ipc.size(), 1u);
    const Json::Value data = sentJson(0)["params"]["data"];
    EXPECT_EQ(data["company"].asString(), "H\xC3\xB6strand");
    EXPECT_EQ(data["numbers"][0]["number"].asString(), "011122233344");
    EXPECT_EQ(sentJson(0)["params"]["type"].asInt(), 5);
    rec::fireAllTimers();
}

}  // namespace
