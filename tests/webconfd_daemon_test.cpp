/*
 * webconfd without sockets: the keys its searches compare, its SQLite store
 * in a private directory, and its request handling on the sample phonebook,
 * where request texts go in and the transcript of what goes out and of what
 * is logged is compared whole.
 */
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <algorithm>
#include <fstream>
#include <string>
#include <vector>

#include "import.h"
#include "jsontext.h"
#include "match.h"
#include "platform/runtime.h"
#include "process_util.h"
#include "server.h"

using ZEMBRA::Phonebook::Contact;
using webconfd::Change;
using webconfd::ServerOptions;
using webconfd::nameKey;
using webconfd::numberKey;
using webconfd::sortKey;
using webconfd::Store;

namespace {

const std::string kOther = "other@Local";

std::string g_log;

void logTo(int level, const char*, const char* function, int, const char* text)
{
    g_log += std::string(level == PLT_LOG_ERROR ? "ERROR " : "INFO ") + function + ": " + text + "\n";
}

template <typename Row>
std::string rowName(const ::testing::TestParamInfo<Row>& info) { return info.param.name; }

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

/* ---- the store ---------------------------------------------------------- */

namespace {

/* Stands for another daemon's transaction on the file: ended by the first
 * wait of a busy connection, which then gets in. A writer that fails at
 * once never waits. */
Store* g_holder = nullptr;

int endTheHoldersTransaction(sqlite3_vfs*, int microseconds)
{
    Store* holder = g_holder;
    g_holder = nullptr;
    EXPECT_TRUE(holder && holder->commit());
    return microseconds;
}

}  // namespace

TEST(Store, AWriterWaitsForAnotherDaemonsTransaction)
{
    sqlite3_vfs* real = sqlite3_vfs_find(nullptr);
    static sqlite3_vfs waiting = *real;
    waiting.zName = "waiting";
    waiting.xSleep = endTheHoldersTransaction;
    ASSERT_EQ(SQLITE_OK, sqlite3_vfs_register(&waiting, 1));
    TempDir dir;
    std::string error;
    Store store, other;
    EXPECT_TRUE(store.open(dir.path() + "/pb.db", &error) && other.open(dir.path() + "/pb.db", &error)) << error;
    Contact held("", "", "", "Held", "Open", "", boost::none), c("", "", "", "Waits", "Writer", "", boost::none);
    EXPECT_TRUE(other.begin());
    EXPECT_EQ(Change::Added, other.putContact(held));
    g_holder = &other;
    EXPECT_EQ(Change::Added, store.putContact(c));
    EXPECT_EQ(2, store.contactCount());
    other.close();
    store.close();
    sqlite3_vfs_unregister(&waiting);
    sqlite3_vfs_register(real, 1);
}

/* The text of a column of the first row of `sql` on the file. */
std::string sqlValue(const std::string& path, const char* sql, int column = 0)
{
    sqlite3* db = nullptr;
    sqlite3_stmt* stmt = nullptr;
    std::string value = "(no row)";
    if (sqlite3_open(path.c_str(), &db) == SQLITE_OK && sqlite3_prepare_v2(db, sql, -1, &stmt, nullptr) == SQLITE_OK &&
        sqlite3_step(stmt) == SQLITE_ROW && sqlite3_column_text(stmt, column) != nullptr)
        value = reinterpret_cast<const char*>(sqlite3_column_text(stmt, column));
    sqlite3_finalize(stmt);
    sqlite3_close(db);
    return value;
}

/* Name and vanity searches read a range of an index, not every contact. A
 * file of version 1, without those indexes, is brought to version 2 when
 * it is opened, in one transaction, and keeps its contacts. */
TEST(Store, AVersion1FileGetsTheKeyIndexesInPlace)
{
    TempDir dir;
    const std::string path = dir.path() + "/pb.db";
    const char indexes[] = "SELECT group_concat(name, ' ') FROM (SELECT name FROM sqlite_master "
                           "WHERE type = 'index' AND tbl_name = 'contacts' AND sql IS NOT NULL ORDER BY name)";
    const std::string all =
        "contacts_first_digits contacts_first_key contacts_last_digits contacts_last_key contacts_order";
    std::string error;
    int32_t byName = -1, byKeypad = -1;
    {
        Store store;
        ASSERT_TRUE(store.open(path, &error)) << error;
        ASSERT_EQ(0, webconfd::importSample(store).rejected);
        byName = store.contactsByName("w", webconfd::Page()).total;
        byKeypad = store.contactsByKeypad("9", webconfd::Page()).total;
    }
    EXPECT_EQ(byName, 6);
    EXPECT_EQ(sqlValue(path, "PRAGMA user_version"), "2");
    EXPECT_EQ(sqlValue(path, indexes), all);
    sqlite3* db = nullptr;
    ASSERT_EQ(SQLITE_OK, sqlite3_open(path.c_str(), &db));
    ASSERT_EQ(SQLITE_OK, sqlite3_exec(db, "DROP INDEX contacts_first_digits; DROP INDEX contacts_first_key; "
                                          "DROP INDEX contacts_last_digits; DROP INDEX contacts_last_key; "
                                          "PRAGMA user_version = 1", nullptr, nullptr, nullptr));
    sqlite3_close(db);
    ASSERT_EQ(sqlValue(path, indexes), "contacts_order");
    {
        Store store;
        ASSERT_TRUE(store.open(path, &error, true)) << error;
        EXPECT_EQ(byName, store.contactsByName("w", webconfd::Page()).total);
        EXPECT_EQ(byKeypad, store.contactsByKeypad("9", webconfd::Page()).total);
    }
    EXPECT_EQ(sqlValue(path, "PRAGMA user_version"), "2");
    EXPECT_EQ(sqlValue(path, indexes), all);
    EXPECT_NE(sqlValue(path, "EXPLAIN QUERY PLAN SELECT id FROM contacts WHERE last_key >= 'w' AND last_key < 'x'", 3)
                  .find("INDEX contacts_last_key"),
              std::string::npos);
}

/* Files the store must refuse: one that is no database, a damaged one, and
 * the empty one that a first start which did not finish leaves (the next
 * start must make it anew, not serve it as an empty phonebook). */
TEST(Store, RefusesFilesItCannotUse)
{
    TempDir dir;
    const std::string junk = dir.path() + "/junk.db", damaged = dir.path() + "/damaged.db";
    std::ofstream(junk) << std::string(4096, 'x');
    std::ofstream{dir.path() + "/empty.db"};
    std::string error, refusals;
    EXPECT_TRUE(Store().open(damaged, &error)) << error;
    std::fstream(damaged, std::ios::in | std::ios::out | std::ios::binary).seekp(100) << std::string(600, '\xff');
    for (const std::string& path : {junk, damaged, dir.path() + "/empty.db"}) {
        EXPECT_FALSE(Store().open(path, &error, path == dir.path() + "/empty.db"));
        refusals += error + "\n";
    }
    EXPECT_EQ("file is not a database\ndatabase disk image is malformed\nnot a complete phonebook: it is empty (a "
              "first start that did not finish?); remove it and the next start makes a new one\n",
              refusals);
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

/* Every message as "destination [+delay] text", its records shown by uid
 * (folders with their count), and the log records in between. */
std::string transcript(Store& store, const ServerOptions& options, const std::vector<Step>& steps)
{
    int64_t now = 0;
    webconfd::Server server(store, options, [&now] { return now; });
    std::string out = "\n";
    for (const Step& step : steps) {
        now = step.at;
        g_log.clear();
        const auto sent = step.from.empty() ? server.announceChange() : server.handle(step.from, step.text);
        out += g_log;
        for (const webconfd::Outgoing& o : sent) {
            Json::Value reply;
            std::string text = o.text;
            if (webconfd::parseJson(o.text, &reply, nullptr)) {
                for (Json::Value& item : reply["items"])
                    item = item["uid"].asString() + (item.isMember("count") ? ":" + item["count"].asString() : "");
                text = webconfd::compactJson(reply);
            }
            out += o.destination + (o.delayMs ? " +" + std::to_string(o.delayMs) + " " : " ") + text + "\n";
        }
    }
    return out;
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
kivo@Local {"items":[],"message":"","queryId":3,"total":40,"type":0}
)"},
    /* A uid as number, a number written otherwise, a name's start, keypad digits, a position. */
    {"SearchMeanings", nullptr,
     {{q(1, "contact", 0, "7")}, {q(2, "contact", 1, R"("0049 711 98765 12")")}, {q(3, "contact", 2, R"("J\u00d6")")},
      {q(4, "contact", 3, R"("347")")}, {q(5, "contact", 4, R"("0")")}}, R"(
kivo@Local {"items":["7"],"message":"","queryId":1,"total":1,"type":0}
kivo@Local {"items":[],"message":"","queryId":1,"total":1,"type":0}
kivo@Local {"items":["7"],"message":"","queryId":2,"total":1,"type":0}
kivo@Local {"items":[],"message":"","queryId":2,"total":1,"type":0}
kivo@Local {"items":["7"],"message":"","queryId":3,"total":1,"type":0}
kivo@Local {"items":[],"message":"","queryId":3,"total":1,"type":0}
kivo@Local {"items":["7"],"message":"","queryId":4,"total":1,"type":0}
kivo@Local {"items":[],"message":"","queryId":4,"total":1,"type":0}
kivo@Local {"items":["1"],"message":"","queryId":5,"total":1,"type":0}
kivo@Local {"items":[],"message":"","queryId":5,"total":1,"type":0}
)"},
    {"EventRange", nullptr, {{q(1, "event", 0, R"({"from":1731571200,"to":1731573000})")}}, R"(
kivo@Local {"items":["e3","e2","e1"],"message":"","queryId":1,"total":3,"type":1}
kivo@Local {"items":[],"message":"","queryId":1,"total":3,"type":1}
)"},
    /* Fresh uids skip the sample's and are not given out twice; a deleted
     * contact leaves its folders, and a new one with its uid is no member. */
    {"Changes", nullptr,
     {{q(1, "contact", 5, R"({"lastName":"Wefer"})")}, {q(2, "contact", 6, R"("41")")}, {q(3, "contact", 5, "{}")},
      {q(4, "contact", 6, R"("1")")}, {q(5, "contact", 5, R"({"uid":"1"})")}, {q(6, "contact", 5, R"({"uid":"1"})")},
      {q(7, "folder", 0, "null")}, {q(8, "contact", 5, R"({"extraText1":")" + std::string(16384, 'x') + R"("})")},
      {q(9, "event", 2, R"({"name":"H\u00f6strand"})")}, {q(10, "event", 3, R"("e13")")}}, R"(
kivo@Local {"items":[],"message":"added contact 41","queryId":1,"total":0,"type":3}
kivo@Local {"items":[],"message":"deleted contact 41","queryId":2,"total":0,"type":3}
kivo@Local {"items":[],"message":"added contact 42","queryId":3,"total":0,"type":3}
kivo@Local {"items":[],"message":"deleted contact 1","queryId":4,"total":0,"type":3}
kivo@Local {"items":[],"message":"added contact 1","queryId":5,"total":0,"type":3}
kivo@Local {"items":[],"message":"replaced contact 1","queryId":6,"total":0,"type":3}
kivo@Local {"items":["f1:3","f3:4","f2:5","f4:2"],"message":"","queryId":7,"total":4,"type":2}
kivo@Local {"items":[],"message":"","queryId":7,"total":4,"type":2}
kivo@Local {"items":[],"message":"refused: contact longer than 16384 bytes","queryId":8,"total":0,"type":3}
kivo@Local {"items":[],"message":"added event e13","queryId":9,"total":0,"type":3}
kivo@Local {"items":[],"message":"deleted event e13","queryId":10,"total":0,"type":3}
)"},
    {"Unsupported", nullptr, {{q(1, "event", 1, "null")}, {R"({"queryId":2,"params":null})"}}, R"(
ERROR handle: query 1: unsupported operation event 1, acknowledged
kivo@Local {"items":[],"message":"unsupported operation event 1","queryId":1,"total":0,"type":3}
ERROR handle: query 2: unsupported operation none 0, acknowledged
kivo@Local {"items":[],"message":"unsupported operation none 0","queryId":2,"total":0,"type":3}
)"},
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
ERROR handle: request from kivo@Local dropped: "offset" is not a 32-bit integer
)"},
    /* A change reaches the other clients known up to their time to live after their last request,
     * not its maker; one that changed nothing reaches nobody. The announcement reaches all. */
    {"Notices", [](ServerOptions& o) { o.clientTtlSeconds = 60; },
     {{q(1, "contact", 0, R"("1")")}, {q(2, "contact", 6, R"("2")"), kOther, 60},
      {q(3, "contact", 6, R"("2")"), kOther, 60}, {"", "", 60}, {q(4, "contact", 6, R"("3")"), kOther, 121},
      {"", "", 121}}, R"(
kivo@Local {"items":["1"],"message":"","queryId":1,"total":1,"type":0}
kivo@Local {"items":[],"message":"","queryId":1,"total":1,"type":0}
other@Local {"items":[],"message":"deleted contact 2","queryId":2,"total":0,"type":3}
kivo@Local {"items":[],"message":"phonebook changed","queryId":4294967295,"total":0,"type":5}
other@Local {"items":[],"message":"no contact 2","queryId":3,"total":0,"type":3}
kivo@Local {"items":[],"message":"phonebook changed","queryId":4294967295,"total":0,"type":5}
other@Local {"items":[],"message":"phonebook changed","queryId":4294967295,"total":0,"type":5}
other@Local {"items":[],"message":"deleted contact 3","queryId":4,"total":0,"type":3}
other@Local {"items":[],"message":"phonebook changed","queryId":4294967295,"total":0,"type":5}
)"},
    /* The texts of contacts 1 and 38 are 502 and 389 bytes as sent. */
    {"CutByBytes", [](ServerOptions& o) { o.bytesPerReply = 891; }, {{q(1, "contact", 2, R"("")", ",\"size\":2")}}, R"(
kivo@Local {"items":["1","38"],"message":"","queryId":1,"total":40,"type":0}
kivo@Local {"items":[],"message":"","queryId":1,"total":40,"type":0}
)"},
    {"CutByBytesOneLess", [](ServerOptions& o) { o.bytesPerReply = 890; },
     {{q(1, "contact", 2, R"("")", ",\"size\":2")}}, R"(
kivo@Local {"items":["1"],"message":"","queryId":1,"total":40,"type":0}
kivo@Local {"items":["38"],"message":"","queryId":1,"total":40,"type":0}
kivo@Local {"items":[],"message":"","queryId":1,"total":40,"type":0}
)"},
    /* Seeded: the same replies drop every time. */
    {"DropSome", [](ServerOptions& o) { o.faults.dropPercent = 50, o.faults.seed = 7, o.recordsPerReply = 1; },
     {{q(1, "contact", 2, R"("")", R"(,"size":4)")}}, R"(
kivo@Local {"items":["38"],"message":"","queryId":1,"total":40,"type":0}
kivo@Local {"items":["3"],"message":"","queryId":1,"total":40,"type":0}
kivo@Local {"items":[],"message":"","queryId":1,"total":40,"type":0}
)"},
    /* Changes are made all the same, and their notices go out at once. */
    {"DropAll", [](ServerOptions& o) { o.faults.dropPercent = 100, o.faults.delayMs = 250; },
     {{q(1, "contact", 2, R"("W")")}, {q(2, "contact", 6, R"("1")"), kOther}}, R"(
kivo@Local {"items":[],"message":"phonebook changed","queryId":4294967295,"total":0,"type":5}
)"},
    {"DelayAndDuplicate", [](ServerOptions& o) { o.faults.delayMs = 250, o.faults.duplicate = true; },
     {{q(1, "contact", 6, R"("none")")}}, R"(
kivo@Local +250 {"items":[],"message":"no contact none","queryId":1,"total":0,"type":3}
kivo@Local +250 {"items":[],"message":"no contact none","queryId":1,"total":0,"type":3}
)"},
    {"NotJson", [](ServerOptions& o) { o.faults.notJson = true; }, {{q(1, "contact", 0, R"("none")")}}, R"(
kivo@Local {"items":[],"message":"","qu
)"},
    {"InvalidType", [](ServerOptions& o) { o.faults.invalidType = true; }, {{q(1, "contact", 6, R"("1")")}}, R"(
kivo@Local {"items":[],"message":"deleted contact 1","queryId":1,"total":0,"type":99}
)"},
};

class Handling : public ::testing::TestWithParam<Exchange> {};

}  // namespace

TEST_P(Handling, RequestsToReplies)
{
    TempDir dir;
    Store store;
    std::string error;
    ASSERT_TRUE(store.open(dir.path() + "/pb.db", &error)) << error;
    ASSERT_EQ(0, webconfd::importSample(store).rejected);
    ServerOptions options;
    if (GetParam().options)
        GetParam().options(options);
    PLT_SetLogSink(logTo);
    EXPECT_EQ(GetParam().transcript, transcript(store, options, GetParam().steps));
    PLT_SetLogSink(nullptr);
}

INSTANTIATE_TEST_SUITE_P(Webconfd, Handling, ::testing::ValuesIn(kExchanges), rowName<Exchange>);


/* ---- import --------------------------------------------------------------- */

namespace {

/* A line of `length` bytes of 'a' (no end), then a line with a contact.
 * Once it has given a megabyte past the longest line a record can have, it
 * looks whether the import has refused the line already; if not, it ends
 * there, and the test sees that the line was read whole first. */
class EndlessLine : public std::streambuf {
public:
    explicit EndlessLine(std::size_t length) : left_(length) {}
    bool refusedInTime = true;

protected:
    int_type underflow() override
    {
        if (left_ > 0) {
            given_ += sizeof chunk_;
            if (given_ > (1u << 20) + 8 * 16384 && g_log.find("line longer than") == std::string::npos) {
                refusedInTime = false;
                return traits_type::eof();
            }
            std::fill(chunk_, chunk_ + sizeof chunk_, 'a');
            const std::size_t n = std::min(left_, sizeof chunk_);
            left_ -= n;
            setg(chunk_, chunk_, chunk_ + n);
            return traits_type::to_int_type('a');
        }
        if (tail_.empty())
            return traits_type::eof();
        std::copy(tail_.begin(), tail_.end(), chunk_);
        setg(chunk_, chunk_, chunk_ + tail_.size());
        tail_.clear();
        return traits_type::to_int_type(chunk_[0]);
    }

private:
    std::size_t left_;
    std::size_t given_ = 0;
    std::string tail_ = "\n{\"contact\": {\"uid\": \"m1\", \"lastName\": \"Mill\"}}\n";
    char chunk_[65536];
};

}  // namespace

/* A line longer than any record can be (a 100 MB one took 1.3 GB and
 * aborted) is refused with its number as soon as it is that long; its rest
 * is skipped, never held, and the next line is read. */
TEST(Import, ALineLongerThanAnyRecordIsRefusedAsItIsRead)
{
    TempDir dir;
    Store store;
    std::string error;
    ASSERT_TRUE(store.open(dir.path() + "/pb.db", &error)) << error;
    EndlessLine source(64u << 20);
    std::istream in(&source);
    g_log.clear();
    PLT_SetLogSink(logTo);
    const webconfd::ImportReport r = webconfd::importRecords(store, in, "big.jsonl");
    PLT_SetLogSink(nullptr);
    EXPECT_TRUE(source.refusedInTime) << "the line was read whole before it was refused";
    EXPECT_EQ(g_log, "ERROR importRecords: big.jsonl:1: line longer than 131072 bytes, refused\n");
    EXPECT_EQ(r.rejected, 1);
    EXPECT_EQ(r.contacts, 1);
    EXPECT_FALSE(r.failed);
}
