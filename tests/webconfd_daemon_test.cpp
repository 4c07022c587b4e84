/*
 * webconfd without sockets: the keys its searches compare, its SQLite store
 * and import in a private directory, its request handling on the sample
 * phonebook (requests in, the transcript of what goes out and is logged
 * compared whole), and its outbox with scripted receivers and a clock
 * moved by hand.
 */
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "import.h"
#include "jsontext.h"
#include "match.h"
#include "outbox.h"
#include "platform/runtime.h"
#include "process_util.h"
#include "server.h"

using ZEMBRA::Phonebook::Contact;
using namespace webconfd;

namespace {

std::string g_log;

/* Log records go to g_log, each after a line feed. */
class Logged : public ::testing::Test {
protected:
    Logged()
    {
        g_log.clear();
        PLT_SetLogSink([](int level, const char*, const char* function, int, const char* text) {
            g_log += std::string(level == PLT_LOG_ERROR ? "\nERROR " : "\nINFO ") + function + ": " + text;
        });
    }
    ~Logged() override { PLT_SetLogSink(nullptr); }
};

/* The sample phonebook in a private directory. */
class Daemon : public Logged {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(store.open(path, &error)) << error;
        ASSERT_EQ(0, importSample(store).rejected);
        g_log.clear();
    }

    TempDir dir;
    const std::string path = dir.path() + "/pb.db";
    std::string error;
    Store store;
};

/* Every row of `statements` on the file, each column followed by "|"; an error's text. */
std::string sql(const std::string& path, const char* statements)
{
    sqlite3* db = nullptr;
    std::string out;
    char* error = nullptr;
    auto row = [](void* out, int n, char** values, char**) {
        for (int i = 0; i < n; i++)
            *static_cast<std::string*>(out) += std::string(values[i] ? values[i] : "NULL") + "|";
        return 0;
    };
    if (sqlite3_open(path.c_str(), &db) != SQLITE_OK || sqlite3_exec(db, statements, row, &out, &error) != SQLITE_OK)
        out += error ? error : sqlite3_errmsg(db);
    sqlite3_free(error);
    sqlite3_close(db);
    return out;
}

Store* g_holder = nullptr;   // another daemon, in a transaction on the file

}  // namespace

/* ---- search keys ---------------------------------------------------------- */

TEST(NumberKey, EveryWritingOfANumberGivesItsOneKey)
{
    const struct {
        const char* dialled;
        const char* key;
    } cases[] = {
        {"(0711) 1/2.3-4\t5", "+4971112345"},  {"0049 711 12345", "+4971112345"},
        {"+49 (0)711 12345", "+4971112345"},   {"(0)662 876543", "+49662876543"},  // "(0)" first: the trunk prefix
        /* Foreign numbers keep their country code; dialled nationally, the
         * same digits are a home number. */
        {"+43 662 876543", "+43662876543"},    {"0043 (0)662 876543", "+43662876543"},
        {"0662 876543", "+49662876543"},       {"12-34", "1234"},  // an extension stays as dialled
        {" - / ()", ""},                       {"+", ""},          // no digits: matches nothing
        /* Service codes, letters and an inner plus keep the text. */
        {"*31# 0711 123", "*31#0711123"},      {"0800-FLOWERS", "0800FLOWERS"},
        {"0711+5", "0711+5"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.key, numberKey(c.dialled)) << c.dialled;
}

/* Names match ignoring case in all of ISO-8859-1 (A Z À Ö Ø Þ fold; the
 * bytes next to them, ×, ß, ÿ and small letters stay); they sort with
 * accents dropped and ligatures spelt out. */
TEST(NameKey, FoldsCaseAndSortsUnderTheBaseLetter)
{
    EXPECT_EQ("@az[\xBF\xE0\xF6\xD7\xF8\xFE\xDF\xFF" "a\xE0", nameKey("@AZ[\xBF\xC0\xD6\xD7\xD8\xDE\xDF\xFF" "a\xE0"));
    std::vector<std::string> names = {"\xD6hlenbach", "Pick", "Nu\xDF" "baum", "Ohm", "Zander", "\xC5ngstr\xF6m"};
    std::sort(names.begin(), names.end(),
              [](const std::string& a, const std::string& b) { return sortKey(a) < sortKey(b); });
    EXPECT_EQ((std::vector<std::string>{"\xC5ngstr\xF6m", "Nu\xDF" "baum", "\xD6hlenbach", "Ohm", "Pick", "Zander"}),
              names);
    EXPECT_EQ("strauss aero thor ab-2", sortKey("Strau\xDF \xC6r\xF8 \xDE\xF3r a\xD7" "b-2"));
}

/* ---- the store and import ------------------------------------------------ */

/* A writer waits for another daemon's transaction, here ended by the
 * writer's first wait, and then gets in; one that failed at once never waits. */
TEST_F(Daemon, AWriterWaitsForAnotherDaemonsTransaction)
{
    sqlite3_vfs* real = sqlite3_vfs_find(nullptr);
    static sqlite3_vfs waiting = *real;
    waiting.zName = "waiting";
    waiting.xSleep = [](sqlite3_vfs*, int microseconds) {
        Store* holder = g_holder;
        g_holder = nullptr;
        EXPECT_TRUE(holder && holder->commit());
        return microseconds;
    };
    ASSERT_EQ(SQLITE_OK, sqlite3_vfs_register(&waiting, 1));
    store.close();
    Store other;
    EXPECT_TRUE(store.open(path, &error) && other.open(path, &error) && other.begin()) << error;
    Contact held("", "", "", "Held", "Open", "", boost::none), c("", "", "", "Waits", "Writer", "", boost::none);
    EXPECT_EQ(Change::Added, other.putContact(held));
    g_holder = &other;
    EXPECT_EQ(Change::Added, store.putContact(c));
    EXPECT_EQ(42, store.contactCount());
    sqlite3_vfs_unregister(&waiting);
    sqlite3_vfs_register(real, 1);
}

/* Name and vanity searches read a range of an index, not every contact. A
 * file of version 1, without those indexes, is brought to version 2 when
 * it is opened, and keeps its contacts. */
TEST_F(Daemon, AVersion1FileGetsTheKeyIndexesInPlace)
{
    const char indexes[] = "SELECT group_concat(name, ' ') FROM (SELECT name FROM sqlite_master "
                           "WHERE type = 'index' AND tbl_name = 'contacts' AND sql IS NOT NULL ORDER BY name)";
    store.close();
    ASSERT_EQ("", sql(path, "DROP INDEX contacts_first_digits; DROP INDEX contacts_first_key; DROP INDEX "
                            "contacts_last_digits; DROP INDEX contacts_last_key; PRAGMA user_version = 1"));
    ASSERT_TRUE(store.open(path, &error, true)) << error;
    EXPECT_EQ(6, store.contactsByName("w", Page()).total);
    EXPECT_EQ(10, store.contactsByKeypad("9", Page()).total);
    EXPECT_EQ(sql(path, "PRAGMA user_version") + sql(path, indexes),
              "2|contacts_first_digits contacts_first_key contacts_last_digits contacts_last_key contacts_order|");
    EXPECT_NE(sql(path, "EXPLAIN QUERY PLAN SELECT id FROM contacts WHERE last_key >= 'w' AND last_key < 'x'")
                  .find("INDEX contacts_last_key"),
              std::string::npos);
}

/* Files the store must refuse: one that is no database and a damaged one
 * (the empty one a first start leaves: e2e MistakesEndTheProgramsWithAReason). */
TEST_F(Daemon, RefusesFilesItCannotUse)
{
    store.close();
    std::fstream(path, std::ios::in | std::ios::out | std::ios::binary).seekp(100) << std::string(600, '\xff');
    std::ofstream(dir.path() + "/junk.db") << std::string(4096, 'x');
    std::string refusals;
    for (const char* name : {"/junk.db", "/pb.db"}) {
        EXPECT_FALSE(store.open(dir.path() + name, &error, true));
        refusals += error + "\n";
    }
    EXPECT_EQ("file is not a database\ndatabase disk image is malformed\n", refusals);
}

namespace {

/* A line of 64 MB of 'a', then a contact. Once it has given a megabyte past
 * the longest line a record can have, the import must have refused the
 * line; if not, it ends there. */
struct EndlessLine : std::streambuf {
    std::size_t given = 0;
    bool refusedInTime = true;
    std::string chunk = std::string(65536, 'a');
    int_type underflow() override
    {
        if (given >= (1u << 20) + 8 * 16384 && g_log.find("line longer than") == std::string::npos)
            refusedInTime = false;
        if (given == 64u << 20)
            chunk = "\n{\"contact\": {\"uid\": \"m1\", \"lastName\": \"Mill\"}}\n";
        if (given > 64u << 20 || !refusedInTime)
            return traits_type::eof();
        given += chunk.size();
        setg(&chunk[0], &chunk[0], &chunk[0] + chunk.size());
        return traits_type::to_int_type(chunk[0]);
    }
};

}  // namespace

/* A line longer than any record can be (a 100 MB one took 1.3 GB and
 * aborted) is refused with its number as soon as it is that long; its rest
 * is skipped, never held, and the next line is read. */
TEST_F(Daemon, ALineLongerThanAnyRecordIsRefusedAsItIsRead)
{
    EndlessLine source;
    std::istream in(&source);
    const ImportReport r = importRecords(store, in, "big.jsonl");
    EXPECT_TRUE(source.refusedInTime) << "the line was read whole before it was refused";
    EXPECT_EQ(g_log, "\nERROR importRecords: big.jsonl:1: line longer than 131072 bytes, refused");
    EXPECT_EQ(r.rejected, 1);
    EXPECT_EQ(r.contacts, 1);
    EXPECT_FALSE(r.failed);
}

/* ---- request handling --------------------------------------------------- */

namespace {

/* A request text, its sender (none: SIGUSR1's announcement), the seconds since the first. */
struct Step {
    std::string text;
    std::string from = "kivo@Local";
    int64_t at = 0;
};

struct Exchange {
    std::string name;
    void (*options)(ServerOptions&);
    std::vector<Step> steps;
    std::string transcript;
};

std::string q(unsigned int id, const char* kind, int type, const std::string& data, const std::string& more = "")
{
    return "{\"queryId\":" + std::to_string(id) + ",\"params\":{\"kind\":\"" + kind + "\",\"type\":" +
           std::to_string(type) + ",\"data\":" + data + "}" + more + "}";
}

const Exchange kExchanges[] = {
    /* Negative offsets count as 0, a size of 0 or less is the default. */
    {"Pages", [](ServerOptions& o) { o.recordsPerReply = 2, o.defaultSize = 2, o.maxSize = 3; },
     {{q(1, "contact", 2, R"("")", R"(,"offset":39,"size":2)")}, {q(2, "contact", 2, R"("")", R"(,"offset":-5)")},
      {q(3, "contact", 2, R"("")", R"(,"size":99999)")}}, R"(
kivo@Local {"items":["36"],"message":"","queryId":1,"total":40,"type":0}
kivo@Local {"items":[],"message":"","queryId":1,"total":40,"type":0}
kivo@Local {"items":["1","38"],"message":"","queryId":2,"total":40,"type":0}
kivo@Local {"items":[],"message":"","queryId":2,"total":40,"type":0}
kivo@Local {"items":["1","38"],"message":"","queryId":3,"total":40,"type":0}
kivo@Local {"items":["2"],"message":"","queryId":3,"total":40,"type":0}
kivo@Local {"items":[],"message":"","queryId":3,"total":40,"type":0})"},
    /* A name's start as JSON escapes it, in another case (each search meaning on the sample:
     * e2e_test). An operation the daemon does not have is acknowledged. */
    {"NameAndUnsupported", nullptr,
     {{q(3, "contact", 2, R"("J\u00d6")")}, {q(7, "event", 1, "null")}, {R"({"queryId":8,"params":null})"}}, R"(
kivo@Local {"items":["7"],"message":"","queryId":3,"total":1,"type":0}
kivo@Local {"items":[],"message":"","queryId":3,"total":1,"type":0}
ERROR handle: query 7: unsupported operation event 1, acknowledged
kivo@Local {"items":[],"message":"unsupported operation event 1","queryId":7,"total":0,"type":3}
ERROR handle: query 8: unsupported operation none 0, acknowledged
kivo@Local {"items":[],"message":"unsupported operation none 0","queryId":8,"total":0,"type":3})"},
    /* Fresh uids skip the sample's and are not given out twice; a deleted
     * contact leaves its folders, and a new one with its uid is no member. */
    {"Changes", nullptr,
     {{q(1, "contact", 5, R"({"lastName":"Wefer"})")}, {q(2, "contact", 6, R"("41")")}, {q(3, "contact", 5, "{}")},
      {q(4, "contact", 6, R"("1")")}, {q(5, "contact", 5, R"({"uid":"1"})")}, {q(6, "contact", 5, R"({"uid":"1"})")},
      {q(7, "folder", 0, "null")}, {q(8, "contact", 5, R"({"extraText1":")" + std::string(16384, 'x') + R"("})")}},
     R"(
kivo@Local {"items":[],"message":"added contact 41","queryId":1,"total":0,"type":3}
kivo@Local {"items":[],"message":"deleted contact 41","queryId":2,"total":0,"type":3}
kivo@Local {"items":[],"message":"added contact 42","queryId":3,"total":0,"type":3}
kivo@Local {"items":[],"message":"deleted contact 1","queryId":4,"total":0,"type":3}
kivo@Local {"items":[],"message":"added contact 1","queryId":5,"total":0,"type":3}
kivo@Local {"items":[],"message":"replaced contact 1","queryId":6,"total":0,"type":3}
kivo@Local {"items":["f1:3","f3:4","f2:5","f4:2"],"message":"","queryId":7,"total":4,"type":2}
kivo@Local {"items":[],"message":"","queryId":7,"total":4,"type":2}
kivo@Local {"items":[],"message":"refused: contact longer than 16384 bytes","queryId":8,"total":0,"type":3})"},
    /* Nothing to answer: no id, or no usable request. Nobody becomes known. */
    {"Malformed", nullptr,
     {{"[1, 2]", "%n@Local"}, {R"({"queryId":4294967296,"params":null})"}, {R"({"queryId":1})"},
      {R"({"queryId":1,"userId":7,"params":null})"}, {R"({"queryId":1,"params":3})"}, {R"({"queryId":1,"params":{}})"},
      {R"({"queryId":1,"params":{"kind":"event","type":"0"}})"}, {R"({"queryId":1,"params":{"kind":"ph","type":0}})"},
      {R"({"queryId":1,"params":null,"size":1e12})"}, {R"({"queryId":1,"params":null,"size":2.0})"},
      {R"({"queryId":1,"params":null,"offset":3000000000})"}, {"", ""}}, R"(
ERROR handle: request from %n@Local dropped: request is not a JSON object
ERROR handle: request from kivo@Local dropped: "queryId" is missing or not an unsigned 32-bit integer
ERROR handle: request from kivo@Local dropped: "params" is missing
ERROR handle: request from kivo@Local dropped: "userId" is not a string
ERROR handle: request from kivo@Local dropped: "params" is neither an object nor null
ERROR handle: request from kivo@Local dropped: "params.kind" is missing or not a string
ERROR handle: request from kivo@Local dropped: "params.type" is missing or not a 32-bit integer
ERROR handle: request from kivo@Local dropped: "params.kind" "ph" is none of contact, event, folder
ERROR handle: request from kivo@Local dropped: "size" is not a 32-bit integer
ERROR handle: request from kivo@Local dropped: "size" is not a 32-bit integer
ERROR handle: request from kivo@Local dropped: "offset" is not a 32-bit integer)"},
    /* A change reaches the other clients known up to their time to live after their last request,
     * not its maker; one that changed nothing reaches nobody. The announcement reaches all. */
    {"Notices", [](ServerOptions& o) { o.clientTtlSeconds = 60; },
     {{q(1, "contact", 0, R"("1")")}, {q(2, "contact", 6, R"("2")"), "other@Local", 60},
      {q(3, "contact", 6, R"("2")"), "other@Local", 60}, {"", "", 60},
      {q(4, "contact", 6, R"("3")"), "other@Local", 121}, {"", "", 121}}, R"(
kivo@Local {"items":["1"],"message":"","queryId":1,"total":1,"type":0}
kivo@Local {"items":[],"message":"","queryId":1,"total":1,"type":0}
other@Local {"items":[],"message":"deleted contact 2","queryId":2,"total":0,"type":3}
kivo@Local {"items":[],"message":"phonebook changed","queryId":4294967295,"total":0,"type":5}
other@Local {"items":[],"message":"no contact 2","queryId":3,"total":0,"type":3}
kivo@Local {"items":[],"message":"phonebook changed","queryId":4294967295,"total":0,"type":5}
other@Local {"items":[],"message":"phonebook changed","queryId":4294967295,"total":0,"type":5}
other@Local {"items":[],"message":"deleted contact 3","queryId":4,"total":0,"type":3}
other@Local {"items":[],"message":"phonebook changed","queryId":4294967295,"total":0,"type":5})"},
    /* The texts of contacts 1 and 38 are 502 and 389 bytes as sent. */
    {"CutByBytes", [](ServerOptions& o) { o.bytesPerReply = 891; }, {{q(1, "contact", 2, R"("")", ",\"size\":2")}}, R"(
kivo@Local {"items":["1","38"],"message":"","queryId":1,"total":40,"type":0}
kivo@Local {"items":[],"message":"","queryId":1,"total":40,"type":0})"},
    {"CutByBytesOneLess", [](ServerOptions& o) { o.bytesPerReply = 890; },
     {{q(1, "contact", 2, R"("")", ",\"size\":2")}}, R"(
kivo@Local {"items":["1"],"message":"","queryId":1,"total":40,"type":0}
kivo@Local {"items":["38"],"message":"","queryId":1,"total":40,"type":0}
kivo@Local {"items":[],"message":"","queryId":1,"total":40,"type":0})"},
    /* Changes are made all the same, and their notices go out at once. */
    {"DropAll", [](ServerOptions& o) { o.faults.dropPercent = 100, o.faults.delayMs = 250; },
     {{q(1, "contact", 2, R"("W")")}, {q(2, "contact", 6, R"("1")"), "other@Local"}}, R"(
kivo@Local {"items":[],"message":"phonebook changed","queryId":4294967295,"total":0,"type":5})"},
    {"DelayDuplicateAndInvalidType",
     [](ServerOptions& o) { o.faults.delayMs = 250, o.faults.duplicate = true, o.faults.invalidType = true; },
     {{q(1, "contact", 6, R"("1")")}}, R"(
kivo@Local +250 {"items":[],"message":"deleted contact 1","queryId":1,"total":0,"type":99}
kivo@Local +250 {"items":[],"message":"deleted contact 1","queryId":1,"total":0,"type":99})"},
    {"NotJson", [](ServerOptions& o) { o.faults.notJson = true; }, {{q(1, "contact", 0, R"("none")")}}, R"(
kivo@Local {"items":[],"message":"","qu)"},
};

class Handling : public Daemon, public ::testing::WithParamInterface<Exchange> {};

}  // namespace

/* Every message as "destination [+delay] text", its records shown by uid
 * (folders with their count), and the log records in between. */
TEST_P(Handling, RequestsToReplies)
{
    ServerOptions options;
    if (GetParam().options)
        GetParam().options(options);
    int64_t now = 0;
    Server server(store, options, [&now] { return now; });
    std::string out;
    for (const Step& step : GetParam().steps) {
        now = step.at;
        g_log.clear();
        const auto sent = step.from.empty() ? server.announceChange() : server.handle(step.from, step.text);
        out += g_log;
        for (const Outgoing& o : sent) {
            Json::Value reply;
            std::string text = o.text;
            if (parseJson(o.text, &reply, nullptr)) {
                for (Json::Value& item : reply["items"])
                    item = item["uid"].asString() + (item.isMember("count") ? ":" + item["count"].asString() : "");
                text = compactJson(reply);
            }
            out += "\n" + o.destination + (o.delayMs ? " +" + std::to_string(o.delayMs) + " " : " ") + text;
        }
    }
    EXPECT_EQ(GetParam().transcript, out);
}

INSTANTIATE_TEST_SUITE_P(Webconfd, Handling, ::testing::ValuesIn(kExchanges),
                         [](const ::testing::TestParamInfo<Exchange>& info) { return info.param.name; });

/* ---- the outbox ------------------------------------------------------------ */

namespace {

/* A scripted receiver per destination takes `room` messages before its
 * queue is full (below 0: it is gone); the clock is moved by hand. */
class OutboxTest : public Logged {
protected:
    Outbox& outbox()
    {
        auto send = [this](const std::string& to, const std::string& text, bool) {
            int& left = room[to];
            if (left <= 0)
                return left < 0 ? SendResult::Gone : SendResult::Full;
            left--;
            got[to] += text + " ";
            return SendResult::Sent;
        };
        if (!box)
            box.reset(new Outbox(send, limits, [this](const std::string& to) { forgotten += to + " "; },
                                 [this] { return now; }));
        return *box;
    }
    /* A search's reply: `text` names it, "end" ends the search. */
    void reply(const std::string& to, uint32_t queryId, const std::string& text)
    {
        outbox().post(Outgoing{to, text, 0, queryId, true, text.compare(0, 3, "end") == 0});
    }
    /* The receiver reads its queue empty; time passes. */
    int64_t reads(const std::string& who, int n, int64_t ms = 5)
    {
        room[who] = n;
        now += ms;
        return outbox().flush();
    }

    OutboxLimits limits = [] { OutboxLimits l; l.patienceMs = 100; return l; }();
    std::unique_ptr<Outbox> box;
    int64_t now = 1000;
    std::map<std::string, int> room;
    std::map<std::string, std::string> got;
    std::string forgotten;
};

}  // namespace

/* A client whose socket is gone is forgotten at the first failed send, with
 * what waited for it; one that takes nothing is given up after its
 * patience, in one record. Meanwhile the others are answered at once. */
TEST_F(OutboxTest, AGoneOrSilentClientHoldsUpNobody)
{
    room["b"] = 1;
    for (const char* to : {"a", "c"}) {
        reply(to, 1, "r1");
        reply(to, 1, "end1");
    }
    room["c"] = -1;
    outbox().post(Outgoing{"b", "notice", 0});
    reads("a", 0, 50);
    outbox().post(Outgoing{"c", "notice", 0});
    EXPECT_EQ(forgotten, "c c ");
    EXPECT_EQ(got["b"], "notice ");
    reads("a", 0, 50);
    EXPECT_EQ(outbox().queuedBytes(), 0u);
    EXPECT_EQ(outbox().flush(), -1) << "nothing waits";
    EXPECT_EQ(g_log, "\nERROR flush: a took no reply for 100 ms: 2 replies (6 bytes) dropped");
}

/* A search that lost a reply, at the byte bound or when its client was
 * given up, never ends by its empty reply: the client would take the
 * shortened answer for a whole one. Other searches and notices go on, and
 * a client given up is tried afresh. */
TEST_F(OutboxTest, ASearchThatLostAReplyIsNotEnded)
{
    limits.bytesPerDestination = 12;
    reply("a", 1, "r1-1");      // queued: 4 bytes
    reply("a", 1, "r1-2xxxx");  // 12 bytes with it: kept
    reply("a", 1, "r1-3");      // past the bound: dropped
    reply("a", 2, "end2");      // another search: dropped for room, not broken
    reply("a", 1, "end1");      // the end of the broken search: never sent
    reads("a", 10);
    room["a"] = 0;
    reply("a", 3, "r3");
    reads("a", 0, limits.patienceMs);   // given up with r3
    room["a"] = 10;
    reply("a", 3, "end3");   // posted later, as with --fault-delay-ms: never sent
    reply("a", 4, "end4");
    EXPECT_EQ(got["a"], "r1-1 r1-2xxxx end4 ");
    EXPECT_EQ(g_log,
              "\nERROR post: replies to a dropped: 12 bytes wait for it, 12 for all"
              "\nERROR flush: a took no reply for 100 ms: 1 replies (2 bytes) dropped");
}
