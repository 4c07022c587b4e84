/*
 * webconfd's request handling without sockets: request texts in the
 * phonebook library's form go in, and the replies are read back with the
 * library's Response, as the module reads them. Covers paging into
 * replies, changes and their acknowledgements, config-changed notices to
 * the other known clients, requests it cannot use, and the faults.
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
using webconfd::Server;
using webconfd::ServerOptions;

namespace {

const std::string kKivo = "kivo@Local";
const std::string kOther = "other@Local";

std::atomic<int> g_errors;

void countErrors(int level, const char*, const char*, int, const char*)
{
    if (level == PLT_LOG_ERROR)
        g_errors++;
}

template <typename P>
std::string request(unsigned int queryId, int32_t type, const Json::Value& data, int offset = 0, int size = 100)
{
    Request r(queryId, "");
    P p;
    p.type = type;
    p.data = data;
    r.params = p;
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
        PLT_SetLogSink(countErrors);
    }
    void TearDown() override { PLT_SetLogSink(nullptr); }

    Server& server()
    {
        if (!server_)
            server_.reset(new Server(store, options, [this] { return now; }));
        return *server_;
    }

    std::vector<Outgoing> contact(const std::string& from, unsigned int id, int32_t type, const Json::Value& data,
                                  int offset = 0, int size = 100)
    {
        return server().handle(from, request<ContactParams>(id, type, data, offset, size));
    }

    /* The contacts of all replies of one search, checking the frame: same
     * id and type everywhere, the total in each, one empty reply last. */
    std::vector<std::string> searchUids(const std::vector<Outgoing>& out, unsigned int id, int32_t total)
    {
        std::vector<std::string> uids;
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

    TempDir dir;
    webconfd::Store store;
    ServerOptions options;
    int64_t now = 1000;
    int sampleContacts = 0;
    std::unique_ptr<Server> server_;
};

/* ---- searches and paging ----------------------------------------------- */

TEST_F(ServerTest, RepliesAreCutByRecordCountAndBytesThenEndEmpty)
{
    options.recordsPerReply = 20;
    std::vector<Outgoing> out = contact(kKivo, 7, ContactParams::ByNameAlpha, "");
    ASSERT_EQ(out.size(), static_cast<std::size_t>((sampleContacts + 19) / 20 + 1));
    EXPECT_EQ(read(out[0]).items.size(), 20u);
    EXPECT_EQ(searchUids(out, 7, sampleContacts).size(), static_cast<std::size_t>(sampleContacts));

    server_.reset();
    options.bytesPerReply = 1500;
    out = contact(kKivo, 1, ContactParams::ByNameAlpha, "", 0, 30);
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
    const std::vector<std::string> all = searchUids(contact(kKivo, 1, ContactParams::ByNameAlpha, "", 0, 6), 1, n);
    EXPECT_EQ(all.size(), 6u);
    EXPECT_EQ(searchUids(contact(kKivo, 2, ContactParams::ByNameAlpha, "", 2, 3), 2, n),
              std::vector<std::string>(all.begin() + 2, all.begin() + 5));
    EXPECT_TRUE(searchUids(contact(kKivo, 3, ContactParams::ByNameAlpha, "", n, 5), 3, n).empty());
    EXPECT_EQ(searchUids(contact(kKivo, 4, ContactParams::ByNameAlpha, "", -5, 3), 4, n),
              std::vector<std::string>(all.begin(), all.begin() + 3));
    EXPECT_EQ(searchUids(contact(kKivo, 5, ContactParams::ByNameAlpha, "", 0, 0), 5, n).size(), 4u) << "default";
    EXPECT_EQ(searchUids(contact(kKivo, 6, ContactParams::ByNameAlpha, "", 0, 99999), 6, n).size(), 6u) << "cap";
}

TEST_F(ServerTest, EachContactSearchTypeUsesItsMeaning)
{
    const std::vector<std::string> fischer = {"7"};
    EXPECT_EQ(searchUids(contact(kKivo, 1, ContactParams::ById, "7"), 1, 1), fischer);
    EXPECT_EQ(searchUids(contact(kKivo, 2, ContactParams::ById, 7), 2, 1), fischer) << "a uid as number";
    EXPECT_EQ(searchUids(contact(kKivo, 3, ContactParams::ByNumber, "+49 711 98765 12"), 3, 1), fischer);
    EXPECT_EQ(searchUids(contact(kKivo, 4, ContactParams::ByNameAlpha, "fisch"), 4, 1), fischer);
    EXPECT_EQ(searchUids(contact(kKivo, 5, ContactParams::ByNameVanity, "347"), 5, 1), fischer);
    EXPECT_EQ(searchUids(contact(kKivo, 6, ContactParams::ByIndex, "0"), 6, 1), std::vector<std::string>{"1"});
    EXPECT_EQ(searchUids(contact(kKivo, 7, ContactParams::ByIndex, 0), 7, 1), std::vector<std::string>{"1"});
}

TEST_F(ServerTest, SearchValuesOfTheWrongShapeFindNothing)
{
    const Json::Value object(Json::objectValue);
    for (int32_t type : {0, 1, 2, 3, 4})
        EXPECT_TRUE(searchUids(contact(kKivo, 1, type, object), 1, 0).empty()) << type;
    for (const char* index : {"x1", "-1", "99999999999"})
        EXPECT_TRUE(searchUids(contact(kKivo, 2, ContactParams::ByIndex, index), 2, 0).empty()) << index;
    EXPECT_EQ(g_errors, 0) << "an unusable search value is no error";
}

TEST_F(ServerTest, EventRangesAndFolderListsComeInTheirReplyTypes)
{
    Json::Value range(Json::objectValue);
    range["from"] = 1731571200;
    range["to"] = 1731571200 + 1800;
    std::vector<Response> r = readAll(server().handle(kKivo, request<EventParams>(3, EventParams::ByRange, range)));
    ASSERT_EQ(r.size(), 2u);
    EXPECT_EQ(r[0].type, Events);
    EXPECT_EQ(r[0].items.size(), 3u);
    EXPECT_EQ(r[1].type, Events);
    EXPECT_TRUE(r[1].items.empty());
    EXPECT_GE(readAll(server().handle(kKivo, request<EventParams>(4, 0, ""))).at(0).total, 10) << "\"\" is all";
    range["from"] = 1.5;
    EXPECT_EQ(readAll(server().handle(kKivo, request<EventParams>(5, 0, range))).at(0).total, 0);

    r = readAll(server().handle(kKivo, request<FolderParams>(9, FolderParams::List, Json::Value())));
    ASSERT_EQ(r.size(), 2u);
    EXPECT_EQ(r[0].type, Folders);
    ASSERT_GE(r[0].items.size(), 3u);
    EXPECT_EQ(static_cast<const Folder&>(*r[0].items[0]).name, "Familie");
    EXPECT_GT(static_cast<const Folder&>(*r[0].items[0]).count, 0);
}

/* ---- changes ----------------------------------------------------------- */

TEST_F(ServerTest, AddedContactIsAcknowledgedFoundWithItsLatin1TextsAndDeleted)
{
    Contact c("kivo", "", "", "Tilmo", "Wefer", "H\xF6strand", boost::optional<std::string>());
    c.numbers.emplace_back("", "011122233344", "", "", 1, 2, -1);
    const std::vector<Response> ack = readAll(contact(kKivo, 5, ContactParams::Add, c.toJson()));
    ASSERT_EQ(ack.size(), 1u);
    EXPECT_EQ(ack[0].type, Acknowledge);
    EXPECT_EQ(ack[0].queryId, 5u);
    const std::string uid = ack[0].message.substr(ack[0].message.rfind(' ') + 1);
    EXPECT_EQ(ack[0].message, "added contact " + uid);

    const std::vector<Response> found = readAll(contact(kKivo, 6, ContactParams::ByNameAlpha, "wEF"));
    ASSERT_EQ(found.at(0).items.size(), 1u);
    const Contact& got = static_cast<const Contact&>(*found[0].items[0]);
    EXPECT_EQ(got.uid, uid);
    EXPECT_EQ(got.company, "H\xF6strand");
    EXPECT_EQ(got.numbers.at(0).number, "011122233344");

    EXPECT_EQ(readAll(contact(kKivo, 7, ContactParams::Delete, uid)).at(0).message, "deleted contact " + uid);
    EXPECT_EQ(readAll(contact(kKivo, 8, ContactParams::Delete, uid)).at(0).message, "no contact " + uid);
}

TEST_F(ServerTest, EventsAreAddedAndDeleted)
{
    Event e("kivo", "ev-17", 1, "0711", "H\xF6strand", 1800000000, 65);
    EXPECT_EQ(readAll(server().handle(kKivo, request<EventParams>(1, EventParams::Add, e.toJson()))).at(0).message,
              "added event ev-17");
    Json::Value range(Json::objectValue);
    range["from"] = 1800000000;
    const std::vector<Response> found = readAll(server().handle(kKivo, request<EventParams>(2, 0, range)));
    ASSERT_EQ(found.at(0).items.size(), 1u);
    EXPECT_EQ(static_cast<const Event&>(*found[0].items[0]).name, "H\xF6strand");
    EXPECT_EQ(readAll(server().handle(kKivo, request<EventParams>(3, EventParams::Delete, "ev-17"))).at(0).message,
              "deleted event ev-17");
}

TEST_F(ServerTest, ChangesThatCannotBeMadeAreAcknowledgedWithTheReason)
{
    EXPECT_EQ(readAll(contact(kKivo, 1, ContactParams::Add, "not a contact")).at(0).message,
              "refused: the contact is not an object");
    EXPECT_EQ(readAll(contact(kKivo, 2, ContactParams::Delete, Json::Value(Json::arrayValue))).at(0).message,
              "refused: the uid is not a string");
    Contact big;
    big.extraText1.assign(webconfd::kMaxRecordBytes, 'x');
    const std::vector<Response> refused = readAll(contact(kKivo, 3, ContactParams::Add, big.toJson()));
    EXPECT_EQ(refused.at(0).type, Acknowledge);
    EXPECT_EQ(refused.at(0).message.compare(0, 8, "refused:"), 0) << refused.at(0).message;
    EXPECT_EQ(store.contactCount(), sampleContacts);
}

/* ---- config-changed notices -------------------------------------------- */

TEST_F(ServerTest, AChangeNotifiesTheOtherKnownClientsNotItsMaker)
{
    contact(kKivo, 1, ContactParams::ById, "1");
    contact("third@Local", 1, ContactParams::ById, "1");
    const std::vector<Outgoing> out = contact(kOther, 40, ContactParams::Delete, "1");
    ASSERT_EQ(out.size(), 3u);
    EXPECT_EQ(out[0].destination, kOther);
    EXPECT_EQ(read(out[0]).type, Acknowledge);
    std::vector<std::string> notified;
    for (std::size_t i = 1; i < out.size(); i++) {
        const Response r = read(out[i]);
        EXPECT_EQ(r.type, ConfigChanged);
        EXPECT_EQ(r.queryId, webconfd::kNoQueryId);
        EXPECT_TRUE(r.items.empty());
        notified.push_back(out[i].destination);
    }
    EXPECT_EQ(notified, (std::vector<std::string>{kKivo, "third@Local"}));

    /* A change that changed nothing, and a search, notify nobody. */
    EXPECT_EQ(contact(kOther, 41, ContactParams::Delete, "1").size(), 1u);
    for (const Outgoing& o : contact(kOther, 42, ContactParams::ByNameAlpha, "W"))
        EXPECT_EQ(o.destination, kOther);
}

TEST_F(ServerTest, ClientsAreForgottenAfterTheirTimeToLiveAndAnnouncingReachesTheRest)
{
    options.clientTtlSeconds = 60;
    EXPECT_TRUE(server().announceChange().empty());
    contact(kKivo, 1, ContactParams::ById, "1");
    now += 60;
    EXPECT_EQ(contact(kOther, 2, ContactParams::Delete, "2").size(), 2u) << "still known at the limit";
    EXPECT_EQ(server().announceChange().size(), 2u) << "to every known client, the maker too";
    now += 61;
    EXPECT_EQ(contact(kOther, 3, ContactParams::Delete, "3").size(), 1u);
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
        "{\"params\": null}",
        "{\"queryId\": -1, \"params\": null}",
        "{\"queryId\": 1}",
        "{\"queryId\": 1, \"params\": {\"kind\": \"phone\", \"type\": 0}}",
        "{\"queryId\": 1, \"params\": {\"kind\": \"contact\", \"type\": 1.5}}",
        std::string(100000, '['),
        "{\"queryId\": 1, \"params\": {\"kind\": \"contact\", \"type\": 2, \"data\": " + std::string(5000, '[') +
            "}}",
    };
    for (const std::string& text : bad)
        EXPECT_TRUE(server().handle("%n%n@Local", text).empty()) << text.substr(0, 60);
    EXPECT_EQ(g_errors, static_cast<int>(bad.size()));
    EXPECT_TRUE(server().announceChange().empty()) << "a bad request makes nobody known";
    EXPECT_TRUE(searchUids(contact(kKivo, 1, ContactParams::ByNameAlpha, "%s%n%s%n"), 1, 0).empty());
}

TEST_F(ServerTest, UnknownOperationsAreAcknowledgedSoTheQueryEnds)
{
    const std::vector<std::string> texts = {
        request<ContactParams>(1, 9, "x"),
        request<EventParams>(2, 1, Json::Value()),
        request<FolderParams>(3, 1, Json::Value()),
        "{\"queryId\": 4, \"params\": null}",
    };
    for (std::size_t i = 0; i < texts.size(); i++) {
        const std::vector<Response> r = readAll(server().handle(kKivo, texts[i]));
        ASSERT_EQ(r.size(), 1u);
        EXPECT_EQ(r[0].type, Acknowledge);
        EXPECT_EQ(r[0].queryId, i + 1);
        EXPECT_EQ(r[0].message.compare(0, 21, "unsupported operation"), 0) << r[0].message;
    }
    EXPECT_EQ(g_errors, 4);
}

/* ---- faults ------------------------------------------------------------ */

TEST_F(ServerTest, DroppedRepliesAreRepeatableAndSpareTheChangeAndItsNotice)
{
    options.faults.dropPercent = 50;
    options.faults.seed = 7;
    options.recordsPerReply = 1;
    auto sent = [this]() {
        std::vector<std::string> texts;
        for (const Outgoing& o : contact(kKivo, 1, ContactParams::ByNameAlpha, ""))
            texts.push_back(o.text);
        return texts;
    };
    const std::vector<std::string> first = sent();
    server_.reset();
    EXPECT_EQ(sent(), first) << "same seed, same choice";
    const std::size_t all = static_cast<std::size_t>(sampleContacts) + 1;
    EXPECT_GT(first.size(), all / 4);
    EXPECT_LT(first.size(), all * 3 / 4);

    server_.reset();
    options.faults.dropPercent = 100;
    options.faults.delayMs = 250;
    EXPECT_TRUE(contact(kKivo, 1, ContactParams::ByNameAlpha, "W").empty());
    const std::vector<Outgoing> out = contact(kOther, 2, ContactParams::Delete, "1");
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
    std::vector<Outgoing> out = contact(kKivo, 1, ContactParams::ById, "7");
    ASSERT_EQ(out.size(), 4u);
    for (const Outgoing& o : out)
        EXPECT_EQ(o.delayMs, 250u);
    EXPECT_EQ(out[0].text, out[1].text);
    EXPECT_EQ(out[2].text, out[3].text);
    EXPECT_NE(out[0].text, out[2].text);

    server_.reset();
    options.faults = webconfd::Faults();
    options.faults.notJson = true;
    Json::Value json;
    for (const Outgoing& o : contact(kKivo, 2, ContactParams::ByNameAlpha, "W"))
        EXPECT_FALSE(webconfd::parseJson(o.text, &json, nullptr)) << o.text;

    server_.reset();
    options.faults = webconfd::Faults();
    options.faults.invalidType = true;
    out = contact(kKivo, 3, ContactParams::Add, Contact().toJson());
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(read(out[0]).type, webconfd::kInvalidReplyType);
}

}  // namespace
