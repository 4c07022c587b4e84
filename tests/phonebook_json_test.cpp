/*
 * The wire: ISO-8859-1 <-> UTF-8, the JSON texts of records, requests and
 * replies, and what the readers make of texts they must not trust. Every
 * form that goes out is pinned as its whole text and must come back from
 * that text byte for byte.
 */
#include <gtest/gtest.h>

#include <cstdio>
#include <sstream>

#include <boost/make_shared.hpp>
#include <json/json.h>

#include "phonebook/latin1.h"
#include "phonebook/request.h"

using namespace ZEMBRA::Phonebook;

namespace {

Json::Value parse(const std::string& text)
{
    Json::CharReaderBuilder builder;
    Json::Value root;
    std::string error;
    std::istringstream in(text);
    EXPECT_TRUE(Json::parseFromStream(builder, in, &root, &error)) << error << text;
    return root;
}

/* One line, members in key order, non-ASCII as \u escapes: the daemon's form. */
std::string text(const Json::Value& json)
{
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    return Json::writeString(builder, json);
}

template <typename Row>
std::string rowName(const ::testing::TestParamInfo<Row>& info)
{
    return info.param.name;
}

}  // namespace

/* ---- ISO-8859-1 and UTF-8 ---------------------------------------------- */

TEST(Latin1, EveryByteIsItsCodePointAndComesBack)
{
    std::string all;
    for (int b = 0; b < 256; ++b) {
        const std::string latin1(1, static_cast<char>(b));
        const std::string utf8 = latin1ToUtf8(latin1);
        char escaped[16];
        std::snprintf(escaped, sizeof escaped, "\"\\u%04x\"", static_cast<unsigned>(b));
        EXPECT_EQ(b < 0x80 ? latin1 : escaped, b < 0x80 ? utf8 : text(Json::Value(utf8))) << b;
        EXPECT_EQ(latin1, utf8ToLatin1(utf8)) << b;
        all += latin1;
    }
    EXPECT_EQ(all, utf8ToLatin1(latin1ToUtf8(all)));
}

/* One replacement per character Latin-1 cannot hold and per bad byte. */
TEST(Latin1, Utf8BeyondLatin1AndMalformedUtf8)
{
    const struct {
        const char* utf8;
        const char* latin1;
    } cases[] = {
        {"\xC3\xA4\xC3\xBF", "\xE4\xFF"},
        {"5 \xE2\x82\xAC", "5 ?"},         // U+20AC
        {"\xE0\xA0\x80\xED\x9F\xBF", "??"},  // U+0800, U+D7FF: the edges of three bytes
        {"\xF0\x9F\x98\x80!", "?!"},       // U+1F600
        {"\xF4\x8F\xBF\xBF", "?"},         // U+10FFFF
        {"\x80z", "?z"},                   // stray continuation byte
        {"\xC0\xAF\xC1\xBF", "????"},      // overlong
        {"\xE0\x80\x80", "???"},           // overlong NUL
        {"\xF0\x80\x80\x80", "????"},      // overlong NUL in four
        {"\xED\xA0\x80", "???"},           // surrogate
        {"\xF4\x90\x80\x80", "????"},      // above U+10FFFF
        {"\xF5\xFF", "??"},                // never a lead
        {"\xE2\x82" "A", "??A"},           // cut short, the next character kept
        {"\xC3\xA4\xC3", "\xE4?"},         // cut off by the end
    };
    for (const auto& c : cases)
        EXPECT_EQ(std::string(c.latin1), utf8ToLatin1(std::string(c.utf8))) << c.utf8;
}

/* Member names and nested texts convert; the in-place form gives what the
 * copying one gives, and refuses a name it cannot convert where it stands. */
TEST(Latin1, TreesConvertCopiedOrInPlace)
{
    Json::Value tree = parse(R"({"n": null, "list": ["x", 5, {"b": true}]})");
    tree["list"][0] = "\x80";
    tree["list"][2]["gr\xF6\xDF" "e"] = "\xE4";
    const Json::Value utf8 = latin1ToUtf8(tree);
    EXPECT_EQ(R"({"list":["\u0080",5,{"b":true,"gr\u00f6\u00dfe":"\u00e4"}],"n":null})", text(utf8));
    EXPECT_EQ(tree, utf8ToLatin1(utf8));

    Json::Value inPlace = tree;
    inPlace["list"][2].removeMember("gr\xF6\xDF" "e");
    EXPECT_TRUE(latin1ToUtf8InPlace(&inPlace));
    EXPECT_EQ(R"({"list":["\u0080",5,{"b":true}],"n":null})", text(inPlace));
    EXPECT_FALSE(latin1ToUtf8InPlace(&tree)) << "a name nested two deep";
}

/* ---- the wire forms ----------------------------------------------------- */

namespace {

struct Wire {
    std::string name;
    Json::Value (*reread)(const Json::Value&);                // from its text and out again
    bool (*same)(const Json::Value&, const Json::Value&);    // records: equality of what they read as
    Json::Value made;                                        // what the writer made; null: the text is the record
    std::string text;
};

template <typename T>
Json::Value rereadRecord(const Json::Value& utf8)
{
    return latin1ToUtf8(T::fromJson(utf8ToLatin1(utf8)).toJson());
}

template <typename T>
bool sameRecord(const Json::Value& a, const Json::Value& b)
{
    return T::fromJson(utf8ToLatin1(a)) == T::fromJson(utf8ToLatin1(b));
}

Json::Value rereadRequest(const Json::Value& json)
{
    Request r(0, "");
    std::string error;
    EXPECT_TRUE(Request::fromJson(json, r, &error)) << error;
    return r.toJson();
}

Json::Value rereadResponse(const Json::Value& json)
{
    return Response::fromJson(json, "b").toJson();
}

template <typename T>
Wire record(const std::string& name, const std::string& text, const Json::Value& made = Json::Value())
{
    return Wire{name, rereadRecord<T>, sameRecord<T>, latin1ToUtf8(made), text};
}

Json::Value request(unsigned int id, const std::string& user, const RequestParams& params, int offset, int size)
{
    Request r(id, user);
    r.params = params;
    r.offset = offset;
    r.size = size;
    return r.toJson();
}

Json::Value response(unsigned int id, int type, const std::string& message, Record* item)
{
    Response r;
    r.queryId = id;
    r.type = type;
    r.message = message;
    r.total = 7;
    r.items = {boost::shared_ptr<Record>(item)};
    return r.toJson();
}

/* Copies of `json` with one value changed each: a text gets an "x", a number one more. */
std::vector<Json::Value> variants(const Json::Value& json)
{
    std::vector<Json::Value> out;
    if (json.isString()) {
        out.push_back(json.asString() + "x");
    } else if (json.isInt64()) {
        out.push_back(Json::Value(static_cast<Json::Int64>(json.asInt64() + 1)));
    } else {
        for (auto it = json.begin(); it != json.end(); ++it) {
            for (const Json::Value& v : variants(*it)) {
                out.push_back(json);
                (json.isArray() ? out.back()[it.index()] : out.back()[it.name()]) = v;
            }
        }
    }
    return out;
}

const std::string kEmptyContact =
    R"({"backend":"","company":"","entries":[],"extraText1":"","extraText2":"","extraText3":"","extraText4":"",)"
    R"("extraText5":"","extraText6":"","extraText7":"","firstName":"","lastName":"","numbers":[],"text3":"",)"
    R"("text7":"","uid":""})";

const Wire kWires[] = {
    record<Contact>("EmptyContact", kEmptyContact, Contact().toJson()),
    record<Contact>("FullContact",
                    R"({"backend":"b","company":"Acme","entries":[{"text1":"a","text2":"b","text3":"c","text4":"d",)"
                    R"("text5":"e","text6":"f","text7":"g","value":-5}],"extraText1":"e1","extraText2":"e2",)"
                    R"("extraText3":"e3","extraText4":"e4","extraText5":"e5","extraText6":"e6","extraText7":"e7",)"
                    R"("firstName":"J\u00f6rg","lastName":"M\u00fcller","numbers":[{"number":"+49711","text1":"home",)"
                    R"("text3":"n3","text4":"n4","value1":1,"value2":2,"value3":2147483647}],"optionalText":"opt",)"
                    R"("text3":"685537 5674","text7":"t7","uid":"u1"})"),
    record<Event>("EmptyEvent", R"({"backend":"","duration":0,"kind":0,"name":"","number":"","timestamp":0,"uid":""})",
                  Event().toJson()),
    record<Event>("FullEvent", R"({"backend":"b","duration":61,"kind":2,"name":"G\u00e4nsel","number":"0711",)"
                               R"("timestamp":4102444800,"uid":"e1"})"),
    record<Event>("EarlyEvent", R"({"backend":"b","duration":-1,"kind":-1,"name":"n","number":"1",)"
                                R"("timestamp":-4102444800,"uid":"e"})"),
    record<Folder>("EmptyFolder", R"({"backend":"","count":0,"name":"","uid":""})", Folder().toJson()),
    record<Folder>("FullFolder", R"({"backend":"b","count":12,"name":"Gesch\u00e4ft","uid":"f1"})"),
    {"EmptyRequest", rereadRequest, nullptr, Request(0, "").toJson(),
     R"({"offset":0,"params":null,"queryId":0,"size":0,"userId":""})"},
    {"ContactRequest", rereadRequest, nullptr,
     request(4294967295u, "J\xF6rg", ContactParams{ContactParams::ByNameAlpha, "H\xF6strand"}, 10, 100),
     R"({"offset":10,"params":{"data":"H\u00f6strand","kind":"contact","type":2},"queryId":4294967295,)"
     R"("size":100,"userId":"J\u00f6rg"})"},
    {"EventRequest", rereadRequest, nullptr,
     request(7, "", EventParams{EventParams::ByRange, utf8ToLatin1(parse(R"({"from": -1, "to": ["S\u00fcd"]})"))}, -3, -4),
     R"({"offset":-3,"params":{"data":{"from":-1,"to":["S\u00fcd"]},"kind":"event","type":0},"queryId":7,)"
     R"("size":-4,"userId":""})"},
    {"FolderRequest", rereadRequest, nullptr, request(8, "u", FolderParams{FolderParams::List, Json::Value()}, 0, 1),
     R"({"offset":0,"params":{"data":null,"kind":"folder","type":0},"queryId":8,"size":1,"userId":"u"})"},
    {"EmptyResponse", rereadResponse, nullptr, Response().toJson(),
     R"({"items":[],"message":"","queryId":0,"total":0,"type":-1})"},
    {"ContactsResponse", rereadResponse, nullptr,
     response(3000000000u, Contacts, "gr\xFC\xDF", new Contact("b", "", "", "", "\xD6z", "", std::string("\xB5"))),
     R"({"items":[{"backend":"b","company":"","entries":[],"extraText1":"","extraText2":"","extraText3":"",)"
     R"("extraText4":"","extraText5":"","extraText6":"","extraText7":"","firstName":"","lastName":"\u00d6z",)"
     R"("numbers":[],"optionalText":"\u00b5","text3":"69","text7":"","uid":""}],"message":"gr\u00fc\u00df",)"
     R"("queryId":3000000000,"total":7,"type":0})"},
    {"EventsResponse", rereadResponse, nullptr, response(1, Events, "", new Event("b", "e", 1, "0", "\xC4", 5, 6)),
     R"({"items":[{"backend":"b","duration":6,"kind":1,"name":"\u00c4","number":"0","timestamp":5,"uid":"e"}],)"
     R"("message":"","queryId":1,"total":7,"type":1})"},
    {"FoldersResponse", rereadResponse, nullptr, response(2, Folders, "", new Folder("b", "f", "\xDF", 3)),
     R"({"items":[{"backend":"b","count":3,"name":"\u00df","uid":"f"}],"message":"","queryId":2,"total":7,"type":2})"},
};

class WireForm : public ::testing::TestWithParam<Wire> {};

}  // namespace

/* Whatever goes out comes back from its text byte for byte; in a record
 * every value is read and counts in its equality. */
TEST_P(WireForm, IsItsTextAndComesBackByteForByte)
{
    const Wire& w = GetParam();
    if (!w.made.isNull()) {
        EXPECT_EQ(w.text, text(w.made));
    }
    const Json::Value json = parse(w.text);
    EXPECT_EQ(w.text, text(w.reread(json)));
    if (w.same) {
        EXPECT_TRUE(w.same(json, json));
        for (const Json::Value& v : variants(json))
            EXPECT_FALSE(w.same(v, json)) << text(v);
    }
}

INSTANTIATE_TEST_SUITE_P(Phonebook, WireForm, ::testing::ValuesIn(kWires), rowName<Wire>);

/* ---- untrusted input ---------------------------------------------------- */

namespace {

struct Refused {
    std::string name;
    std::string text;
    std::string error;
};

const Refused kRefused[] = {
    {"NotAnObject", "[1]", "request is not a JSON object"},
    {"NoId", R"({"params": null})", R"("queryId" is missing or not an unsigned 32-bit integer)"},
    {"NegativeId", R"({"queryId": -1, "params": null})", R"("queryId" is missing or not an unsigned 32-bit integer)"},
    {"IdPast32Bits", R"({"queryId": 4294967296, "params": null})", R"("queryId" is missing or not an unsigned 32-bit integer)"},
    {"IdWithFraction", R"({"queryId": 5.0, "params": null})", R"("queryId" is missing or not an unsigned 32-bit integer)"},
    {"UserIdNotText", R"({"queryId": 5, "userId": 7, "params": null})", R"("userId" is not a string)"},
    {"NoParams", R"({"queryId": 5})", R"("params" is missing)"},
    {"ParamsNumber", R"({"queryId": 5, "params": 3})", R"("params" is neither an object nor null)"},
    {"NoKind", R"({"queryId": 5, "params": {"type": 1}})", R"("params.kind" is missing or not a string)"},
    {"TypeText", R"({"queryId": 5, "params": {"kind": "event", "type": "1"}})",
     R"("params.type" is missing or not a 32-bit integer)"},
    {"UnknownKind", R"({"queryId": 5, "params": {"kind": "ph\u00f6ne", "type": 1}})",
     "\"params.kind\" \"ph\xF6ne\" is none of contact, event, folder"},
    {"OffsetText", R"({"queryId": 5, "params": null, "offset": "1"})", R"("offset" is not a 32-bit integer)"},
    {"SizePast32Bits", R"({"queryId": 5, "params": null, "size": 1e12})", R"("size" is not a 32-bit integer)"},
};

class RefusedRequest : public ::testing::TestWithParam<Refused> {};

/* A reply and the clean reply it must read as. */
struct Hostile {
    std::string name;
    std::string text;
    std::string readsAs;
};

const Hostile kHostile[] = {
    {"NotAnObject", R"([{"queryId": 1}])", "{}"},
    {"NoId", R"({"type": 0, "items": [{}]})", "{}"},
    {"NegativeId", R"({"queryId": -1, "type": 0, "items": [{}]})", "{}"},
    {"IdPast32Bits", R"({"queryId": 4294967296, "type": 1})", "{}"},
    {"IdAsText", R"({"queryId": "7", "type": "0"})", "{}"},
    {"IdWithFraction", R"({"queryId": 7.0, "type": 1, "total": 3})", "{}"},
    {"OutOfRange", R"({"queryId": 7, "type": 99999999999, "total": 2147483648, "message": 5})", R"({"queryId": 7})"},
    {"ItemsNotAList", R"({"queryId": 7, "type": 0, "total": -4, "items": {"a": {}}})", R"({"queryId": 7, "total": -4})"},
    {"AcknowledgeHasNoItems", R"({"queryId": 7, "type": 3, "items": [{}]})", R"({"queryId": 7, "type": 3})"},
    {"ItemsNotObjects", R"({"queryId": 7, "type": 2, "items": [1, null, "x", [], true, {}]})",
     R"({"queryId": 7, "type": 2, "items": [{}]})"},
    {"MembersOfWrongTypes",
     R"({"queryId": 7, "type": 0, "items": [{"uid": 17, "lastName": [], "firstName": "Eva", "numbers": [1,)"
     R"( {"value1": {}, "value2": 2.0, "value3": 3000000000}], "entries": [5, {"value": 1.5}], "optionalText": 5}]})",
     R"({"queryId": 7, "type": 0, "items": [{"firstName": "Eva", "numbers": [{}], "entries": [{}]}]})"},
    {"ListsNotLists", R"({"queryId": 7, "type": 0, "items": [{"numbers": {}, "entries": "x", "optionalText": null}]})",
     R"({"queryId": 7, "type": 0, "items": [{}]})"},
    {"BadUtf8AndNamesThatAreNotOurs",
     "{\"queryId\": 7, \"type\": 0, \"items\": [{\"lastName\": \"\\u20ac\xC3\", \"lastNam\\u00e9\": \"x\","
     " \"lastNam\xC1\xA5\": \"y\", \"firstName\": \"\xC3\xA4\", \"a\": 1, \"zz\": 2}]}",
     R"({"queryId": 7, "type": 0, "items": [{"lastName": "??", "firstName": "\u00e4"}]})"},
    {"TimesNotWhole",
     R"({"queryId": 7, "type": 1, "items": [{"timestamp": 1e3, "kind": true, "duration": 4294967296},)"
     R"( {"timestamp": 9223372036854775808}]})",
     R"({"queryId": 7, "type": 1, "items": [{}, {}]})"},
};

class HostileReply : public ::testing::TestWithParam<Hostile> {};

}  // namespace

TEST_P(RefusedRequest, SaysWhyAndLeavesTheTargetAlone)
{
    Request out(77, "keep");
    std::string error;
    EXPECT_FALSE(Request::fromJson(parse(GetParam().text), out, &error));
    EXPECT_EQ(GetParam().error, error);
    EXPECT_EQ(R"({"offset":0,"params":null,"queryId":77,"size":0,"userId":"keep"})", text(out.toJson()));
}

INSTANTIATE_TEST_SUITE_P(Phonebook, RefusedRequest, ::testing::ValuesIn(kRefused), rowName<Refused>);

TEST_P(HostileReply, ReadsAsTheCleanReply)
{
    Response r;
    ASSERT_NO_THROW(r = Response::fromJson(parse(GetParam().text), "b"));
    EXPECT_EQ(text(Response::fromJson(parse(GetParam().readsAs), "b").toJson()), text(r.toJson()));
}

INSTANTIATE_TEST_SUITE_P(Phonebook, HostileReply, ::testing::ValuesIn(kHostile), rowName<Hostile>);
