/*
 * The wire: ISO-8859-1 <-> UTF-8, the JSON form of requests and replies,
 * and replies that are not what they should be.
 */
#include <gtest/gtest.h>

#include <memory>
#include <sstream>

#include <boost/make_shared.hpp>
#include <json/json.h>

#include "phonebook/latin1.h"
#include "phonebook/request.h"

using namespace ZEMBRA::Phonebook;

namespace {

const std::string Hoestrand = "H\xF6strand";  // 48 F6 73 74 72 61 6E 64

Json::Value parse(const std::string& text)
{
    Json::CharReaderBuilder builder;
    Json::Value root;
    std::string error;
    std::istringstream in(text);
    EXPECT_TRUE(Json::parseFromStream(builder, in, &root, &error)) << error << "\n" << text;
    return root;
}

/* What the other side of the IPC sees and sends back. */
Json::Value overTheWire(const Json::Value& v)
{
    return parse(v.toStyledString());
}

Request roundTrip(const Request& request)
{
    Request back(0, "");
    std::string error;
    EXPECT_TRUE(Request::fromJson(overTheWire(request.toJson()), back, &error)) << error;
    return back;
}

}  // namespace

TEST(Latin1, EveryByteSurvivesTheRoundTrip)
{
    std::string all;
    for (int b = 0; b < 256; ++b) {
        all += static_cast<char>(b);
    }
    const std::string utf8 = latin1ToUtf8(all);
    EXPECT_EQ(128u + 2 * 128u, utf8.size());
    EXPECT_EQ(std::string("\xC3\xBF"), utf8.substr(utf8.size() - 2));
    EXPECT_EQ(all, utf8ToLatin1(utf8));
    EXPECT_EQ("H\xC3\xB6strand", latin1ToUtf8(Hoestrand));
    const std::string withNul("a\0\xE4", 3);
    EXPECT_EQ(std::string("a\0\xC3\xA4", 4), latin1ToUtf8(withNul));
    EXPECT_EQ(withNul, utf8ToLatin1(latin1ToUtf8(withNul)));
}

TEST(Latin1, ReplacesWhatLatin1CannotHoldAndEveryBadByte)
{
    const struct {
        const char* utf8;
        const char* latin1;
    } cases[] = {
        {"5 \xE2\x82\xAC", "5 ?"},            // U+20AC: one '?' for the character
        {"\xF0\x9F\x98\x80!", "?!"},          // U+1F600
        {"\x80z", "?z"},                      // stray continuation byte
        {"\xC0\xAF", "??"},                   // overlong '/'
        {"\xE0\x80\x80", "???"},              // overlong NUL
        {"\xE2\x82" "A", "??A"},              // cut short, next character kept
        {"\xED\xA0\x80", "???"},              // surrogate
        {"\xF4\x90\x80\x80", "????"},         // above U+10FFFF
        {"\xF5\xFF", "??"},                   // never a lead
        {"end\xC3", "end?"},                  // cut off by the end
        {"\xC3\xA4\xC3", "\xE4?"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(std::string(c.latin1), utf8ToLatin1(std::string(c.utf8))) << c.utf8;
    }
}

TEST(Latin1, TreeConversionReachesNamesAndNestedStrings)
{
    Json::Value v;
    v["Gr\xF6\xDF" "e"]["list"].append("\xE4");
    v["Gr\xF6\xDF" "e"]["list"].append(42);
    v["n"] = Json::Value();
    const Json::Value utf8 = latin1ToUtf8(v);
    ASSERT_TRUE(utf8.isMember("Gr\xC3\xB6\xC3\x9F" "e"));
    EXPECT_EQ("\xC3\xA4", utf8["Gr\xC3\xB6\xC3\x9F" "e"]["list"][0].asString());
    EXPECT_EQ(42, utf8["Gr\xC3\xB6\xC3\x9F" "e"]["list"][1].asInt());
    EXPECT_EQ(v, utf8ToLatin1(utf8));
}

TEST(RequestWire, MembersAndKinds)
{
    Request r(4294967295u, "user");
    r.offset = 10;
    r.size = 100;
    Json::Value j = r.toJson();
    EXPECT_EQ(4294967295u, j["queryId"].asUInt());
    EXPECT_EQ("user", j["userId"].asString());
    EXPECT_TRUE(j["params"].isNull());
    EXPECT_EQ(10, j["offset"].asInt());
    EXPECT_EQ(100, j["size"].asInt());

    const struct {
        RequestParams params;
        const char* kind;
        int type;
    } kinds[] = {
        {ContactParams{ContactParams::ByNumber, Json::Value("0711")}, "contact", 1},
        {EventParams{EventParams::Delete, Json::Value("e1")}, "event", 3},
        {FolderParams{FolderParams::List, Json::Value()}, "folder", 0},
    };
    for (const auto& k : kinds) {
        r.params = k.params;
        j = r.toJson();
        EXPECT_EQ(k.kind, j["params"]["kind"].asString());
        EXPECT_EQ(k.type, j["params"]["type"].asInt());
        Request back = roundTrip(r);
        EXPECT_EQ(k.params.which(), back.params.which());
        EXPECT_EQ(j, back.toJson());
    }
}

TEST(RequestWire, TextsArriveAsUtf8AndComeBackByteIdentical)
{
    Request r(5, Hoestrand);
    Contact c("b", "u", "", "J\xF6rg", Hoestrand, "", boost::none);
    c.numbers.emplace_back("", "0711", "", "", 1, 2, -1);
    r.params = ContactParams{ContactParams::Add, c.toJson()};
    const std::string text = r.toJson().toStyledString();
    EXPECT_EQ(std::string::npos, text.find('\xF6')) << "no raw Latin-1 on the wire";

    Request back = roundTrip(r);
    EXPECT_EQ(Hoestrand, back.userId);
    const ContactParams* p = boost::get<ContactParams>(&back.params);
    ASSERT_NE(nullptr, p);
    EXPECT_EQ(ContactParams::Add, p->type);
    EXPECT_EQ(c, Contact::fromJson(p->data));

    Json::Value range;
    range["from"] = 1;
    range["to"] = "S\xFC" "d";
    r.params = EventParams{EventParams::ByRange, range};
    back = roundTrip(r);
    const EventParams* p2 = boost::get<EventParams>(&back.params);
    ASSERT_NE(nullptr, p2);
    EXPECT_EQ(range, p2->data);
}

TEST(RequestWire, ReaderRejectsWhatIsNotARequest)
{
    const char* bad[] = {
        "[1]",
        "{\"params\": null}",
        "{\"queryId\": -1, \"params\": null}",
        "{\"queryId\": \"5\", \"params\": null}",
        "{\"queryId\": 5.0, \"params\": null}",
        "{\"queryId\": 4294967296, \"params\": null}",
        "{\"queryId\": 5}",
        "{\"queryId\": 5, \"params\": 3}",
        "{\"queryId\": 5, \"params\": {\"type\": 1}}",
        "{\"queryId\": 5, \"params\": {\"kind\": \"phone\", \"type\": 1}}",
        "{\"queryId\": 5, \"params\": {\"kind\": \"contact\", \"type\": \"1\"}}",
        "{\"queryId\": 5, \"userId\": 7, \"params\": null}",
        "{\"queryId\": 5, \"params\": null, \"size\": 1e12}",
    };
    for (const char* text : bad) {
        Request out(77, "keep");
        std::string error;
        EXPECT_FALSE(Request::fromJson(parse(text), out, &error)) << text;
        EXPECT_FALSE(error.empty()) << text;
        EXPECT_EQ(77u, out.queryId) << "a refused request leaves the target alone";
    }
    Request out(0, "");
    ASSERT_TRUE(Request::fromJson(parse("{\"queryId\": 9, \"params\": null}"), out, nullptr));
    EXPECT_EQ(9u, out.queryId);
    EXPECT_EQ(0, out.offset);
    EXPECT_EQ(0, out.size);
}

TEST(ResponseWire, RecordsComeBackWithTheBackendsId)
{
    Response r;
    r.queryId = 3000000000u;
    r.type = Contacts;
    r.total = 2;
    r.message = "gr\xFC\xDF";
    auto contact = boost::make_shared<Contact>("daemon", "c1", "", "", Hoestrand, "", boost::none);
    r.items.push_back(contact);
    r.items.push_back(boost::make_shared<Contact>());

    Response back = Response::fromJson(overTheWire(r.toJson()), "kivo");
    EXPECT_EQ(3000000000u, back.queryId);
    EXPECT_EQ(Contacts, back.type);
    EXPECT_EQ(2, back.total);
    EXPECT_EQ(r.message, back.message);
    ASSERT_EQ(2u, back.items.size());
    Contact expected = *contact;
    expected.backend = "kivo";
    EXPECT_EQ(expected, dynamic_cast<const Contact&>(*back.items[0]));

    r.type = Events;
    r.items = {boost::make_shared<Event>("", "e1", Event::Missed, "0711", Hoestrand, 1, 2)};
    back = Response::fromJson(overTheWire(r.toJson()), "kivo");
    ASSERT_EQ(1u, back.items.size());
    EXPECT_EQ(Event("kivo", "e1", Event::Missed, "0711", Hoestrand, 1, 2),
              dynamic_cast<const Event&>(*back.items[0]));

    r.type = Folders;
    r.items = {boost::make_shared<Folder>("", "f1", Hoestrand, 4)};
    back = Response::fromJson(overTheWire(r.toJson()), "kivo");
    ASSERT_EQ(1u, back.items.size());
    EXPECT_EQ(Folder("kivo", "f1", Hoestrand, 4), dynamic_cast<const Folder&>(*back.items[0]));
}

TEST(ResponseWire, HostileRepliesNeverThrow)
{
    const struct {
        const char* text;
        unsigned int queryId;
        int type;
        int32_t total;
        size_t items;
    } cases[] = {
        {"[{\"queryId\": 1}]", 0, -1, 0, 0},
        {"\"text\"", 0, -1, 0, 0},
        {"{}", 0, -1, 0, 0},
        {"{\"queryId\": -1, \"type\": 0, \"items\": [{}]}", 0, -1, 0, 0},
        {"{\"queryId\": 4294967296, \"type\": 1}", 0, -1, 0, 0},
        {"{\"queryId\": 4294967295, \"type\": 3, \"items\": [{}]}", 4294967295u, 3, 0, 0},
        {"{\"queryId\": \"7\", \"type\": \"0\", \"items\": [{}]}", 0, -1, 0, 0},
        {"{\"queryId\": 7.5, \"type\": 2.0, \"total\": 1e30}", 0, -1, 0, 0},
        {"{\"queryId\": 7.0, \"type\": 1, \"total\": 3.0}", 0, -1, 0, 0},
        {"{\"queryId\": 7, \"type\": 99999999999, \"total\": 2147483648}", 7, -1, 0, 0},
        {"{\"queryId\": 7, \"type\": 0, \"total\": -4, \"items\": {\"a\": {}}}", 7, -1, -4, 0},
        {"{\"queryId\": 7, \"type\": 0, \"items\": [1, null, \"x\", [], {}, true]}", 7, 0, 0, 1},
        {"{\"queryId\": 7, \"type\": 2, \"items\": [[[{}]], {\"count\": [[]]}]}", 7, 2, 0, 1},
        {"{\"queryId\": 7, \"type\": 0, \"items\": [{\"numbers\": [1, {\"value1\": {}}],"
         " \"entries\": {}, \"uid\": {\"x\": [1]}, \"optionalText\": 5}]}", 7, 0, 0, 1},
    };
    for (const auto& c : cases) {
        Response r;
        ASSERT_NO_THROW(r = Response::fromJson(parse(c.text), "kivo")) << c.text;
        EXPECT_EQ(c.queryId, r.queryId) << c.text;
        EXPECT_EQ(c.type, r.type) << c.text;
        EXPECT_EQ(c.total, r.total) << c.text;
        ASSERT_EQ(c.items, r.items.size()) << c.text;
        for (const auto& item : r.items) {
            ASSERT_TRUE(item) << c.text;
        }
    }
    Response r = Response::fromJson(parse("{\"queryId\": 1, \"type\": 0, \"items\": [{\"lastName\": \"\\u20ac\xC3\"}]}"), "k");
    ASSERT_EQ(1u, r.items.size());
    EXPECT_EQ("??", dynamic_cast<const Contact&>(*r.items[0]).lastName);
}
