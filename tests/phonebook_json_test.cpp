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

}  // namespace

TEST(Latin1, EveryByteAndEveryTextOfATreeSurviveTheRoundTrip)
{
    std::string all;
    for (int b = 0; b < 256; ++b) {
        all += static_cast<char>(b);
    }
    const std::string utf8 = latin1ToUtf8(all);
    EXPECT_EQ(128u + 2 * 128u, utf8.size());
    EXPECT_EQ(std::string("\xC3\xBF"), utf8.substr(utf8.size() - 2));
    EXPECT_EQ(all, utf8ToLatin1(utf8)) << "NUL included";
    EXPECT_EQ("H\xC3\xB6strand", latin1ToUtf8(Hoestrand));

    Json::Value tree;
    tree["Gr\xF6\xDF" "e"]["list"].append("\xE4");
    tree["Gr\xF6\xDF" "e"]["list"].append(42);
    tree["n"] = Json::Value();
    const Json::Value utf8Tree = latin1ToUtf8(tree);
    EXPECT_EQ("\xC3\xA4", utf8Tree["Gr\xC3\xB6\xC3\x9F" "e"]["list"][0].asString()) << "names and nested texts";
    EXPECT_EQ(42, utf8Tree["Gr\xC3\xB6\xC3\x9F" "e"]["list"][1].asInt());
    EXPECT_EQ(tree, utf8ToLatin1(utf8Tree));
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

/* The reader gives back, in ISO-8859-1, every request the writer wrote:
 * each kind of parameters, the largest id and texts beyond ASCII. */
TEST(RequestWire, ReadsBackWhatItWrote)
{
    Contact c("b", "u", "", "J\xF6rg", Hoestrand, "", boost::none);
    c.numbers.emplace_back("", "0711", "", "", 1, 2, -1);
    Json::Value range;
    range["from"] = 1;
    range["to"] = "S\xFC" "d";
    Request r(4294967295u, Hoestrand);
    r.offset = 10;
    r.size = 100;
    for (const RequestParams& params :
         {RequestParams(), RequestParams(ContactParams{ContactParams::Add, c.toJson()}),
          RequestParams(EventParams{EventParams::ByRange, range}),
          RequestParams(FolderParams{FolderParams::List, Json::Value()})}) {
        r.params = params;
        Request back(0, "");
        std::string error;
        ASSERT_TRUE(Request::fromJson(overTheWire(r.toJson()), back, &error)) << error;
        EXPECT_EQ(params.which(), back.params.which());
        EXPECT_EQ(Hoestrand, back.userId);
        EXPECT_EQ(r.toJson(), back.toJson());
    }
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

TEST(ResponseWire, EnvelopeComesBackAndEveryItemGetsTheBackendsId)
{
    Response r;
    r.queryId = 3000000000u;
    r.type = Contacts;
    r.total = 2;
    r.message = "gr\xFC\xDF";
    r.items = {boost::make_shared<Contact>("daemon", "c1", "", "", Hoestrand, "", boost::none),
               boost::make_shared<Contact>()};
    const Response back = Response::fromJson(overTheWire(r.toJson()), "kivo");
    EXPECT_EQ(3000000000u, back.queryId);
    EXPECT_EQ(Contacts, back.type);
    EXPECT_EQ(2, back.total);
    EXPECT_EQ(r.message, back.message);
    ASSERT_EQ(2u, back.items.size());
    EXPECT_EQ("kivo", dynamic_cast<const Contact&>(*back.items[0]).backend);
    EXPECT_EQ("kivo", dynamic_cast<const Contact&>(*back.items[1]).backend);
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

/* Records are read from the UTF-8 tree text by text and requests built in
 * UTF-8 member by member: both must give exactly what converting the whole
 * tree gives. */
TEST(ResponseWire, ItemsReadAsFromTheConvertedTree)
{
    const char* items[] = {
        "{\"uid\": \"u\xC3\xA4\", \"lastName\": \"H\\u00f6\", \"firstName\": \"\\u20ac\xC3\", \"company\": \"\xFF\","
        " \"text3\": \"\xC0\xAF\", \"extraText7\": \"a\\u0000b\", \"optionalText\": \"\xE2\x82\xAC x\"}",
        "{\"lastNam\xC3\xA9\": \"x\", \"lastNam\xC1\xA5\": \"y\", \"lastName\": 5, \"uid\": null, \"numbers\": [{\"text1\":"
        " \"\xC3\xBC\", \"value1\": 2147483647, \"value2\": 2147483648, \"value3\": -1.0}, 7, {\"number\": [\"1\"]}],"
        " \"entries\": [{\"text7\": \"\xED\xA0\x80\", \"value\": -2147483648}], \"optionalText\": {}}",
        "{\"numbers\": {}, \"entries\": \"x\", \"extraText1\": \"\xF4\x90\x80\x80\", \"optionalText\": \"\"}",
        "{\"uid\": \"e\xC3\x9F\", \"kind\": 2, \"number\": \"0711\", \"name\": \"\xF0\x9F\x98\x80\", \"timestamp\":"
        " 9223372036854775807, \"duration\": 4294967296, \"count\": 3, \"backend\": \"\xC3\xA5\"}",
    };
    for (const char* item : items) {
        const Json::Value element = parse(item);
        Json::Value reply;
        reply["queryId"] = 1;
        reply["items"].append(element);
        const Json::Value latin1 = utf8ToLatin1(element);

        reply["type"] = Contacts;
        Response r = Response::fromJson(reply, "kivo");
        ASSERT_EQ(1u, r.items.size()) << item;
        Contact contact = Contact::fromJson(latin1);
        contact.backend = "kivo";
        EXPECT_EQ(contact, dynamic_cast<const Contact&>(*r.items[0])) << item;

        reply["type"] = Events;
        r = Response::fromJson(reply, "kivo");
        ASSERT_EQ(1u, r.items.size()) << item;
        Event event = Event::fromJson(latin1);
        event.backend = "kivo";
        EXPECT_EQ(event, dynamic_cast<const Event&>(*r.items[0])) << item;

        reply["type"] = Folders;
        r = Response::fromJson(reply, "kivo");
        ASSERT_EQ(1u, r.items.size()) << item;
        Folder folder = Folder::fromJson(latin1);
        folder.backend = "kivo";
        EXPECT_EQ(folder, dynamic_cast<const Folder&>(*r.items[0])) << item;
    }
}

TEST(RequestWire, BuiltAsTheConvertedTree)
{
    Contact contact("b", "u\xE4", "", "J\xFCrgen", Hoestrand, "\xA9 GmbH", std::string("\xFF"));
    contact.numbers.push_back(ContactNumber("t\xE9l", "0711", "", "", 1, 2, 3));
    Json::Value odd(Json::objectValue);
    odd["gr\xFC\xDF"] = Json::Value(Json::arrayValue);
    odd["gr\xFC\xDF"].append("\xB5");
    odd["n"] = 1.5;
    const RequestParams params[] = {
        boost::blank(),
        ContactParams{ContactParams::ByNameAlpha, Json::Value(Hoestrand)},
        ContactParams{ContactParams::Add, contact.toJson()},
        EventParams{EventParams::ByRange, odd},
        FolderParams{FolderParams::List, Json::Value()},
    };
    for (const RequestParams& p : params) {
        Request request(42, "user \xC4");
        request.params = p;
        request.offset = 3;
        request.size = 100;

        Json::Value latin1(Json::objectValue);
        latin1["queryId"] = 42u;
        latin1["userId"] = request.userId;
        latin1["params"] = Json::Value();
        if (const auto* c = boost::get<ContactParams>(&p)) {
            latin1["params"]["kind"] = "contact";
            latin1["params"]["type"] = c->type;
            latin1["params"]["data"] = c->data;
        } else if (const auto* e = boost::get<EventParams>(&p)) {
            latin1["params"]["kind"] = "event";
            latin1["params"]["type"] = e->type;
            latin1["params"]["data"] = e->data;
        } else if (const auto* f = boost::get<FolderParams>(&p)) {
            latin1["params"]["kind"] = "folder";
            latin1["params"]["type"] = f->type;
            latin1["params"]["data"] = f->data;
        }
        latin1["offset"] = 3;
        latin1["size"] = 100;
        EXPECT_EQ(latin1ToUtf8(latin1).toStyledString(), request.toJson().toStyledString());
    }
}

TEST(ResponseWire, EveryMemberOfEveryRecordComesBack)
{
    Contact c("b", "u\xE4", "t3", "J\xFCrgen", Hoestrand, "Co", std::string("opt\xDF"));
    c.text7 = "t7";
    c.extraText1 = "x1";
    c.extraText2 = "x2";
    c.extraText3 = "x3";
    c.extraText4 = "x4";
    c.extraText5 = "x5";
    c.extraText6 = "x6";
    c.extraText7 = "x\xB5";
    c.numbers.emplace_back("n1", "0711", "n3", "n4", 1, -2, 2147483647);
    c.numbers.emplace_back("m\xE9", "+49", "m3", "m4", -2147483647 - 1, 0, 7);
    ContactEntry e;
    e.text1 = "e1";
    e.text2 = "e2";
    e.text3 = "e3";
    e.text4 = "e4";
    e.text5 = "e5";
    e.text6 = "e6";
    e.text7 = "e\xF6";
    e.value = -9;
    c.entries = {e, ContactEntry()};
    const Event event("b", "ev", Event::Outgoing, "0711", Hoestrand, -4102444800LL, 61);
    const Folder folder("b", "f\xFC", Hoestrand, 12);

    Response r;
    r.queryId = 9;
    r.type = Contacts;
    r.items = {boost::make_shared<Contact>(c)};
    Response back = Response::fromJson(overTheWire(r.toJson()), "kivo");
    ASSERT_EQ(1u, back.items.size());
    c.backend = "kivo";
    EXPECT_EQ(c, dynamic_cast<const Contact&>(*back.items[0]));

    r.type = Events;
    r.items = {boost::make_shared<Event>(event)};
    back = Response::fromJson(overTheWire(r.toJson()), "kivo");
    ASSERT_EQ(1u, back.items.size());
    Event eventBack = event;
    eventBack.backend = "kivo";
    EXPECT_EQ(eventBack, dynamic_cast<const Event&>(*back.items[0]));

    r.type = Folders;
    r.items = {boost::make_shared<Folder>(folder)};
    back = Response::fromJson(overTheWire(r.toJson()), "kivo");
    ASSERT_EQ(1u, back.items.size());
    Folder folderBack = folder;
    folderBack.backend = "kivo";
    EXPECT_EQ(folderBack, dynamic_cast<const Folder&>(*back.items[0]));
}
