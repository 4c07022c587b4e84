/* The host's console "svc" against webconfd on its sample phonebook, in a
 * private directory: every query mode, paging, best match, the settings a
 * service gives its client, and changes of contacts and events, each
 * checked against what the sample phonebook holds. */
#include <gtest/gtest.h>

#include <memory>

#include "process_util.h"

namespace {

struct Step {
    const char* line;
    std::string output;   // exactly what follows the line, up to its last line
};

const std::string kFischer =
    "contact uid \"7\" name \"Fischer\" \"J\xF6rg\" company \"Autohaus Fischer GmbH\" numbers \"0711 98765-0\" "
    "\"0711 98765-12\" \"0172 3456789\"";
const std::string kWagner =
    "contact uid \"33\" name \"Wagner\" \"J\xFCrgen\" company \"Wagner Transporte\" numbers \"0621 33 44 55 66\" "
    "\"0160 5544332\"";
const std::string kWeber =
    "contact uid \"30\" name \"Weber\" \"Anna\" company \"Weber Druck\" numbers \"+49 (0)69 1234 5678\" "
    "\"0151 23456789\" \"069 8765 4321\"";
const std::string kWinkler = "contact uid \"31\" name \"Winkler\" \"Ma\xEBlle\" numbers \"0351 8877665\"";
const std::string kWefer = "contact uid \"\" name \"Wefer\" \"Tilmo\" company \"H\xF6strand\" numbers \"011122233344\"";

const Step kSteps[] = {
    {"id 7", "#1 ID \"7\"\n#1 " + kFischer + " pattern \"7\" count 1\n#1 end: found, 1 delivered\n"},
    {"number +4971198765-12",
     "#2 Number \"+4971198765-12\"\n#2 " + kFischer + " pattern \"+4971198765-12\" count 1\n"
     "#2 end: found, 1 delivered\n"},
    {"name offset=2 size=2 W",
     "#3 NameAlpha \"W\" offset 2 size 2\n#3 " + kWeber + " pattern \"W\" count 6\n#3 " + kWinkler +
         " pattern \"W\" count 6\n#3 end: found, 2 delivered\n"},
    // Best match: the first of the six, once, when the sixth has come.
    {"name best=1 W",
     "#4 NameAlpha \"W\" best\n#4 " + kWagner + " pattern \"W\" count 6\n#4 end: found, 1 delivered\n"},
    {"vanity 9246",
     "#5 NameVanity \"9246\"\n#5 " + kWagner + " pattern \"9246\" count 1\n#5 end: found, 1 delivered\n"},
    {"index =0",
     "#6 Index 0\n#6 contact uid \"1\" name \"Albrecht\" \"Hannelore\" company \"Stadtwerke K\xF6lnbach\" numbers "
     "\"+49 711 4455-100\" \"0171 2233445\" pattern \"0\" count 1\n#6 end: found, 1 delivered\n"},
    {"events {\"from\": 1731571200, \"to\": 1731573000}",
     "#7 EventRange {\"from\":1731571200,\"to\":1731573000}\n"
     "#7 event uid \"e3\" outgoing time 1731573000 (2024-11-14 08:30:00 UTC) duration 45 number \"0221 1234567\" "
     "name \"\"\n"
     "#7 event uid \"e2\" incoming time 1731572100 (2024-11-14 08:15:00 UTC) duration 312 number \"+49 160 9876543\" "
     "name \"G\xFCnther B\xE4\x63ker\"\n"
     "#7 event uid \"e1\" missed time 1731571200 (2024-11-14 08:00:00 UTC) duration 0 number \"0711 98765-12\" "
     "name \"J\xF6rg Fischer\"\n#7 end: found, 3 delivered\n"},
    {"folders",
     "#8 FolderList \"\"\n#8 folder uid \"f1\" name \"Familie\" contacts 3\n"
     "#8 folder uid \"f3\" name \"Freunde\" contacts 4\n#8 folder uid \"f2\" name \"Gesch\xE4\x66tlich\" contacts 6\n"
     "#8 folder uid \"f4\" name \"Verein Gr\xFCn-Wei\xDF\" contacts 2\n#8 end: found, 4 delivered\n"},
    {"name user=anna size=1 Wag", "#9 NameAlpha \"Wag\" size 1 user \"anna\"\n#9 " + kWagner +
                                      " pattern \"Wag\" count 1\n#9 end: found, 1 delivered\n"},
    {"id 999", "#10 ID \"999\"\n#10 end: nothing found\n"},
    // A contact added, found under the uid the daemon gives it, deleted.
    {"add contact {\"lastName\": \"Wefer\", \"firstName\": \"Tilmo\", \"company\": \"H\xF6strand\", "
     "\"numbers\": [{\"number\": \"011122233344\"}]}",
     "add sent: " + kWefer + "\n"},
    {"name Wef", "#11 NameAlpha \"Wef\"\n#11 contact uid \"41\" name \"Wefer\" \"Tilmo\" company \"H\xF6strand\" "
                 "numbers \"011122233344\" pattern \"Wef\" count 1\n#11 end: found, 1 delivered\n"},
    {"del contact 41", "del sent: contact uid \"41\"\n"},
    {"name Wef", "#12 NameAlpha \"Wef\"\n#12 end: nothing found\n"},
    // An event likewise.
    {"add event {\"kind\": 2, \"number\": \"0711 1\", \"name\": \"Z\xF6\x65\", \"timestamp\": 1800000000, "
     "\"duration\": 5}",
     "add sent: event uid \"\" outgoing time 1800000000 (2027-01-15 08:00:00 UTC) duration 5 number \"0711 1\" "
     "name \"Z\xF6\x65\"\n"},
    {"events {\"from\": 1800000000}",
     "#13 EventRange {\"from\":1800000000}\n#13 event uid \"e13\" outgoing time 1800000000 (2027-01-15 08:00:00 UTC) "
     "duration 5 number \"0711 1\" name \"Z\xF6\x65\"\n#13 end: found, 1 delivered\n"},
    {"del event e13", "del sent: event uid \"e13\"\n"},
    {"events {\"from\": 1800000000}", "#14 EventRange {\"from\":1800000000}\n#14 end: nothing found\n"},
    // What a person may mistype: a line saying why, nothing sent.
    {"name offset=x W", "svc: offset= wants a whole number, not \"x\"\n"},
    {"add contact {\"lastName\":",
     "svc: add contact: not JSON: * Line 1, Column 13   Syntax error: value, object or array expected.\n"},
    {"del event", "svc: del event wants the record's JSON on one line or its uid\n"},
    {"find W", "svc: unknown command \"find\" (help lists the commands)\n"},
};

class ServiceConsole : public ::testing::Test {
protected:
    void SetUp() override
    {
        daemon.reset(new Program({WEBCONFD, "--db", dir.path() + "/phonebook.db", "--ipc-dir", ipc}));
        ASSERT_TRUE(daemon->waitOut("serving")) << daemon->out();
    }
    /* The query timer is 5000 units of `timerUnitUs`. */
    void startHost(const char* timerUnitUs, const char* enter = "svc")
    {
        host.reset(new Program({KIVO_HOST, "--ipc-dir", ipc, "--timer-unit-us", timerUnitUs, "--enter", enter}));
    }
    /* Types a line; what followed it once it holds `until`. */
    std::string run(const std::string& line, const std::string& until)
    {
        const std::size_t from = host->out().size();
        host->send(line);
        EXPECT_TRUE(host->waitOut(until, from)) << line << ":\n" << host->out();
        return host->out().substr(from);
    }

    TempDir dir;
    const std::string ipc = dir.path() + "/ipc";
    std::unique_ptr<Program> daemon, host;
};

/* The searches and changes one after the other: each line's output up to its
 * last line (a search's end, a change's "sent", a refusal). */
TEST_F(ServiceConsole, EveryModeSettingAndChangeAgainstTheSamplePhonebook)
{
    startHost("2000");   // a 10 s timer: every end here is the daemon's
    for (const Step& step : kSteps) {
        const std::string last = step.output.substr(step.output.rfind('\n', step.output.size() - 2) + 1);
        EXPECT_EQ(run(step.line, last), step.output) << step.line;
    }
    EXPECT_EQ(host->finish(), 0);
}

/* An end by the module's timer says so; the daemon's quick empty answer
 * does not. Replies sent to another task never reach the module. */
TEST_F(ServiceConsole, AnEndByTheTimerIsToldFromAnEmptyAnswer)
{
    startHost("400");   // a 2 s timer
    EXPECT_EQ(run("id 999", "#1 end"), "#1 ID \"999\"\n#1 end: nothing found\n");
    // The stand-in of task 64 logs the two replies it was sent.
    EXPECT_EQ(run("id source=cfgcache@Local 7", "#2 end"),
              "#2 ID \"7\" source \"cfgcache@Local\"\nINFO host cacheTask:0 cache-clear notice 0x00830002\n"
              "INFO host cacheTask:0 cache-clear notice 0x00830002\n#2 end: nothing found, by the timer\n");
    EXPECT_EQ(host->finish(), 0);
}

/* Several searches at once: each delivery carries its search's number. */
TEST_F(ServiceConsole, SearchesAtOnceAreToldApart)
{
    startHost("2000");
    host->send("name Wag");
    host->send("id 7");
    ASSERT_TRUE(host->waitOut("#1 end")) << host->out();
    ASSERT_TRUE(host->waitOut("#2 end")) << host->out();
    const std::string out = host->out();
    EXPECT_NE(out.find("#1 " + kWagner + " pattern \"Wag\" count 1\n"), std::string::npos) << out;
    EXPECT_NE(out.find("#2 " + kFischer + " pattern \"7\" count 1\n"), std::string::npos) << out;
    EXPECT_EQ(host->finish(), 0);
}

/* What the client was given is what the module sends: the kivo console's
 * traces show the request of a search made in svc. */
TEST_F(ServiceConsole, TheSettingsReachTheRequest)
{
    startHost("2000", "kivo");
    run("ts info 1", "CmdTraceSet");
    run("q", "");
    run("svc", "");
    const std::string out = run("name user=anna offset=3 size=4 primitive=0x00830005 W", "#1 end");
    for (const char* shown : {"startQuery:210  mode: NameAlpha  offset 3  size 4\n", "startQuery:252 userid anna\n",
                              "\"userId\" : \"anna\"", "\"data\" : \"W\"", "#1 end: found, 3 delivered"})
        EXPECT_NE(out.find(shown), std::string::npos) << shown << " in:\n" << out;
    EXPECT_EQ(host->finish(), 0);
}

/* With the interface switched off a search is refused at once. */
TEST_F(ServiceConsole, ARefusedSearchEndsAtOnce)
{
    startHost("2000", "kivo");
    run("si 0", "KIVO_GetIfcEnable() 0");
    run("q", "");
    run("svc", "");
    EXPECT_EQ(run("id 7", "#1 end"),
              "#1 ID \"7\"\nINFO kivoexp KIVO_ExpQuery:94 kivo-interface disabled\n#1 end: refused\n");
    EXPECT_EQ(run("del event e1", "e1\"\n"),
              "INFO kivoexp KIVO_ExpDelEvent:159 kivo-interface disabled\ndel refused: event uid \"e1\"\n");
    EXPECT_EQ(host->finish(), 0);
}

}  // namespace
