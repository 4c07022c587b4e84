/*
 * webconfd's request handling without sockets, on the sample phonebook:
 * request texts in the phonebook library's form go in, and the replies are
 * read back with the library's Response, as the module reads them. Covers
 * paging into replies, changes and their acknowledgements, config-changed
 * notices to the other known clients, requests it cannot use, and the
 * faults. What each search matches is the store's (webconfd_store_test).
 */
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "import.h"
#include "jsontext.h"
#include "phonebook/latin1.h"
#include "phonebook/request.h"
#include "platform/runtime.h"
#include "process_util.h"
#include "server.h"

using namespace ZEMBRA::Phonebook;
using webconfd::Outgoing;
using Uids = std::vector<std::string>;

namespace {

const std::string kKivo = "kivo@Local";
const std::string kOther = "other@Local";

std::atomic<int> g_errors;

template <typename P = ContactParams>
std::string request(unsigned int queryId, int32_t type, const Json::Value& data, int offset = 0, int size = 100)
{
    Request r(queryId, "");
    r.params = P{type, data};
    r.offset = offset;
    r.size = size;
    return webconfd::compactJson(r.toJson());
}

Response read(const Outgoing& o)
{
    Json::Value json;
    EXPECT_TRUE(webconfd::parseJson(o.text, &json, nullptr)) << o.text;
    return Response::fromJson(json, "test");
}

std::vector<Response> readAll(const std::vector<Outgoing>& out)
{
    std::vector<Response> all;
    for (const Outgoing& o : out)
        all.push_back(read(o));
    return all;
}

class ServerTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        std::string error;
        ASSERT_TRUE(store.open(dir.path() + "/pb.db", &error)) << error;
        ASSERT_EQ(webconfd::importSample(store).rejected, 0);
        sampleContacts = static_cast<int>(store.contactCount());
        g_errors = 0;
        PLT_SetLogSink([](int level, const char*, const char*, int, const char*) {
            if (level == PLT_LOG_ERROR)
                g_errors++;
        });
    }
    void TearDown() override { PLT_SetLogSink(nullptr); }

    /* The server with the current options; a new one after reset(). */
    webconfd::Server& server()
    {
        if (!server_)
            server_.reset(new webconfd::Server(store, options, [this] { return now; }));
        return *server_;
    }
    void reset() { server_.reset(); }
    std::vector<Outgoing> handle(const std::string& text, const std::string& from = kKivo)
    {
        return server().handle(from, text);
    }

    /* The contacts of all replies of one search, checking the frame: same
     * destination, id and type everywhere, the total in each, one empty
     * reply last. */
    Uids searchUids(const std::vector<Outgoing>& out, unsigned int id, int32_t total)
    {
        Uids uids;
        EXPECT_FALSE(out.empty());
        for (std::size_t i = 0; i < out.size(); i++) {
            EXPECT_EQ(out[i].destination, kKivo);
            const Response r = read(out[i]);
            EXPECT_EQ(r.queryId, id);
            EXPECT_EQ(r.type, Contacts);
            EXPECT_EQ(r.total, total);
            EXPECT_EQ(r.items.empty(), i + 1 == out.size()) << "reply " << i;
            for (const auto& item : r.items)
                uids.push_back(static_cast<const Contact&>(*item).uid);
        }
        return uids;
    }
    Uids search(unsigned int id, int32_t type, const Json::Value& data, int32_t total, int offset = 0, int size = 100)
    {
        return searchUids(handle(request(id, type, data, offset, size)), id, total);
    }

    TempDir dir;
    webconfd::Store store;
    webconfd::ServerOptions options;
    int64_t now = 1000;
    int sampleContacts = 0;
    std::unique_ptr<webconfd::Server> server_;
};

/* ---- searches and paging ----------------------------------------------- */

TEST_F(ServerTest, RepliesAreCutByBytesThenEndEmpty)
{
    options.bytesPerReply = 1500;
    const std::vector<Outgoing> out = handle(request(1, ContactParams::ByNameAlpha, "", 0, 30));
    EXPECT_EQ(searchUids(out, 1, sampleContacts).size(), 30u);
    EXPECT_GT(out.size(), 5u);
    for (const Response& r : readAll(out)) {
        std::size_t bytes = 0;
        for (const auto& item : r.items)
            bytes += webconfd::compactJson(latin1ToUtf8(item->toJson())).size();
        EXPECT_TRUE(r.items.size() <= 1 || bytes <= 1500) << bytes;
    }
}

TEST_F(ServerTest, OffsetAndSizeSelectThePageTotalCountsAllMatches)
{
    options.defaultSize = 4;
    options.maxSize = 6;
    const int n = sampleContacts;
    const Uids all = search(1, ContactParams::ByNameAlpha, "", n, 0, 6);
    ASSERT_EQ(all.size(), 6u);
    EXPECT_EQ(search(2, ContactParams::ByNameAlpha, "", n, 2, 3), Uids(all.begin() + 2, all.begin() + 5));
    EXPECT_EQ(search(3, ContactParams::ByNameAlpha, "", n, n, 5), Uids());
    EXPECT_EQ(search(4, ContactParams::ByNameAlpha, "", n, -5, 3), Uids(all.begin(), all.begin() + 3));
    EXPECT_EQ(search(5, ContactParams::ByNameAlpha, "", n, 0, 0).size(), 4u) << "the default size";
    EXPECT_EQ(search(6, ContactParams::ByNameAlpha, "", n, 0, 99999).size(), 6u) << "the largest size";
}

/* The console's searches by text are shown end to end (e2e_webconfd_test). */
TEST_F(ServerTest, EachSearchTypeReachesItsMeaningAndWrongValuesFindNothing)
{
    EXPECT_EQ(search(1, ContactParams::ById, 7, 1), Uids{"7"}) << "a uid as number";
    EXPECT_EQ(search(2, ContactParams::ByNameVanity, "347", 1), Uids{"7"});
    EXPECT_EQ(search(3, ContactParams::ByIndex, 0, 1), Uids{"1"});
    for (int32_t type : {0, 1, 2, 3, 4})
        EXPECT_EQ(search(8, type, Json::Value(Json::objectValue), 0), Uids()) << type;
    for (const char* index : {"x1", "-1", "99999999999"})
        EXPECT_EQ(search(9, ContactParams::ByIndex, index, 0), Uids()) << index;
    EXPECT_EQ(search(10, ContactParams::ByNameAlpha, "%s%n%s%n", 0), Uids());
    EXPECT_EQ(g_errors, 0) << "an unusable search value is no error";
}

TEST_F(ServerTest, EventRangesAndFolderListsComeInTheirReplyTypes)
{
    Json::Value range(Json::objectValue);
    range["from"] = 1731571200;
    range["to"] = 1731571200 + 1800;
    std::vector<Response> r = readAll(handle(request<EventParams>(3, EventParams::ByRange, range)));
    ASSERT_EQ(r.size(), 2u);
    EXPECT_EQ(r[0].type, Events);
    EXPECT_EQ(r[0].items.size(), 3u);
    EXPECT_EQ(r[1].type, Events);
    EXPECT_TRUE(r[1].items.empty());
    EXPECT_GE(readAll(handle(request<EventParams>(4, 0, ""))).at(0).total, 10) << "\"\" is all";
    range["from"] = 1.5;
    EXPECT_EQ(readAll(handle(request<EventParams>(5, 0, range))).at(0).total, 0);

    r = readAll(handle(request<FolderParams>(9, FolderParams::List, Json::Value())));
    ASSERT_EQ(r.size(), 2u);
    EXPECT_EQ(r[0].type, Folders);
    ASSERT_GE(r[0].items.size(), 3u);
    EXPECT_EQ(static_cast<const Folder&>(*r[0].items[0]).name, "Familie");
    EXPECT_GT(static_cast<const Folder&>(*r[0].items[0]).count, 0);
}

/* ---- changes and other operations ---------------------------------------- */

/* One acknowledgement ends every request that is no search. */
TEST_F(ServerTest, ChangesAndUnknownOperationsAreAcknowledgedWithWhatHappened)
{
    const Contact tilmo("kivo", "", "", "Tilmo", "Wefer", "H\xF6strand", boost::none);
    const Event call("kivo", "ev-17", 1, "0711", "H\xF6strand", 1800000000, 65);
    Contact big;
    big.extraText1.assign(webconfd::kMaxRecordBytes, 'x');
    const Event bigCall("", "", 0, "", std::string(webconfd::kMaxRecordBytes, 'y'), 1, 1);
    const std::string uid = std::to_string(sampleContacts + 1);
    const struct {
        std::string request;
        std::string acknowledged;
    } changes[] = {
        {request(0, ContactParams::Add, tilmo.toJson()), "added contact " + uid},
        {request(1, ContactParams::Add, "not a contact"), "refused: the contact is not an object"},
        {request(2, ContactParams::Add, big.toJson()), "refused: contact longer than 16384 bytes"},
        {request(3, ContactParams::Delete, Json::Value(Json::arrayValue)), "refused: the uid is not a string"},
        {request(4, ContactParams::Delete, uid), "deleted contact " + uid},
        {request(5, ContactParams::Delete, uid), "no contact " + uid},
        {request<EventParams>(6, EventParams::Add, call.toJson()), "added event ev-17"},
        {request<EventParams>(7, EventParams::Add, call.toJson()), "replaced event ev-17"},
        {request<EventParams>(8, EventParams::Add, 5), "refused: the event is not an object"},
        {request<EventParams>(9, EventParams::Add, bigCall.toJson()), "refused: event longer than 16384 bytes"},
        {request<EventParams>(10, EventParams::Delete, "ev-17"), "deleted event ev-17"},
        {request<EventParams>(11, EventParams::Delete, "ev-17"), "no event ev-17"},
        {request(12, 9, "x"), "unsupported operation contact 9"},
        {request<EventParams>(13, 1, Json::Value()), "unsupported operation event 1"},
        {request<FolderParams>(14, 1, Json::Value()), "unsupported operation folder 1"},
        {"{\"queryId\": 15, \"params\": null}", "unsupported operation none 0"},
    };
    for (unsigned int i = 0; i < sizeof changes / sizeof changes[0]; i++) {
        const std::vector<Response> r = readAll(handle(changes[i].request));
        ASSERT_EQ(r.size(), 1u) << i;
        EXPECT_EQ(r[0].type, Acknowledge);
        EXPECT_EQ(r[0].queryId, i);
        EXPECT_EQ(r[0].message, changes[i].acknowledged);
    }
    EXPECT_EQ(store.contactCount(), sampleContacts);
    EXPECT_EQ(g_errors, 4) << "only the unknown operations are logged";
}

/* ---- config-changed notices -------------------------------------------- */

TEST_F(ServerTest, AChangeNotifiesTheOtherKnownClientsNotItsMaker)
{
    handle(request(1, ContactParams::ById, "1"));
    handle(request(1, ContactParams::ById, "1"), "third@Local");
    const std::vector<Outgoing> out = handle(request(40, ContactParams::Delete, "1"), kOther);
    ASSERT_EQ(out.size(), 3u);
    EXPECT_EQ(out[0].destination, kOther);
    EXPECT_EQ(read(out[0]).type, Acknowledge);
    Uids notified;
    for (std::size_t i = 1; i < out.size(); i++) {
        const Response r = read(out[i]);
        EXPECT_EQ(r.type, ConfigChanged);
        EXPECT_EQ(r.queryId, webconfd::kNoQueryId);
        EXPECT_TRUE(r.items.empty());
        notified.push_back(out[i].destination);
    }
    EXPECT_EQ(notified, (Uids{kKivo, "third@Local"}));

    /* A change that changed nothing, and a search, notify nobody. */
    EXPECT_EQ(handle(request(41, ContactParams::Delete, "1"), kOther).size(), 1u);
    for (const Outgoing& o : handle(request(42, ContactParams::ByNameAlpha, "W"), kOther))
        EXPECT_EQ(o.destination, kOther);
}

TEST_F(ServerTest, ClientsAreForgottenAfterTheirTimeToLiveAndAnnouncingReachesTheRest)
{
    options.clientTtlSeconds = 60;
    EXPECT_TRUE(server().announceChange().empty());
    handle(request(1, ContactParams::ById, "1"));
    now += 60;
    EXPECT_EQ(handle(request(2, ContactParams::Delete, "2"), kOther).size(), 2u) << "still known at the limit";
    EXPECT_EQ(server().announceChange().size(), 2u) << "to every known client, the maker too";
    now += 61;
    EXPECT_EQ(handle(request(3, ContactParams::Delete, "3"), kOther).size(), 1u);
    const std::vector<Outgoing> out = server().announceChange();
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(out[0].destination, kOther);
    EXPECT_EQ(read(out[0]).type, ConfigChanged);
}

/* ---- requests it cannot use -------------------------------------------- */

TEST_F(ServerTest, MalformedRequestsAreLoggedAndDropped)
{
    const std::vector<std::string> bad = {
        "",
        "not json",
        "%s%n%x",
        "{\"queryId\": 1",
        "{} {}",
        "[1, 2]",
        "{\"queryId\": 1}",
        "{\"queryId\": 1, \"params\": {\"kind\": \"phone\", \"type\": 0}}",
        std::string(100000, '['),
        "{\"queryId\": 1, \"params\": {\"kind\": \"contact\", \"type\": 2, \"data\": " + std::string(5000, '[') + "}}",
    };
    for (const std::string& text : bad)
        EXPECT_TRUE(handle(text, "%n%n@Local").empty()) << text.substr(0, 60);
    EXPECT_EQ(g_errors, static_cast<int>(bad.size()));
    EXPECT_TRUE(server().announceChange().empty()) << "a bad request makes nobody known";
}

/* ---- faults ------------------------------------------------------------ */

TEST_F(ServerTest, DroppedRepliesAreRepeatableAndSpareTheChangeAndItsNotice)
{
    options.faults.dropPercent = 50;
    options.faults.seed = 7;
    options.recordsPerReply = 1;
    auto sent = [this]() {
        std::vector<std::string> texts;
        for (const Outgoing& o : handle(request(1, ContactParams::ByNameAlpha, "")))
            texts.push_back(o.text);
        return texts;
    };
    const std::vector<std::string> first = sent();
    reset();
    EXPECT_EQ(sent(), first) << "same seed, same choice";
    const std::size_t all = static_cast<std::size_t>(sampleContacts) + 1;
    EXPECT_GT(first.size(), all / 4);
    EXPECT_LT(first.size(), all * 3 / 4);

    reset();
    options.faults.dropPercent = 100;
    options.faults.delayMs = 250;
    EXPECT_TRUE(handle(request(1, ContactParams::ByNameAlpha, "W")).empty());
    const std::vector<Outgoing> out = handle(request(2, ContactParams::Delete, "1"), kOther);
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(out[0].destination, kKivo);
    EXPECT_EQ(read(out[0]).type, ConfigChanged);
    EXPECT_EQ(out[0].delayMs, 0u) << "notices are not delayed";
    EXPECT_EQ(store.contactsById("1", webconfd::Page()).total, 0);
}

TEST_F(ServerTest, DelayDuplicateNotJsonAndInvalidTypeSpoilEveryReply)
{
    options.faults.duplicate = true;
    options.faults.delayMs = 250;
    std::vector<Outgoing> out = handle(request(1, ContactParams::ById, "7"));
    ASSERT_EQ(out.size(), 4u);
    for (const Outgoing& o : out)
        EXPECT_EQ(o.delayMs, 250u);
    EXPECT_EQ(out[0].text, out[1].text);
    EXPECT_EQ(out[2].text, out[3].text);
    EXPECT_NE(out[0].text, out[2].text);

    reset();
    options.faults = webconfd::Faults();
    options.faults.notJson = true;
    Json::Value json;
    for (const Outgoing& o : handle(request(2, ContactParams::ByNameAlpha, "W")))
        EXPECT_FALSE(webconfd::parseJson(o.text, &json, nullptr)) << o.text;

    reset();
    options.faults = webconfd::Faults();
    options.faults.invalidType = true;
    out = handle(request(3, ContactParams::Add, Contact().toJson()));
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(read(out[0]).type, webconfd::kInvalidReplyType);
}

}  // namespace
