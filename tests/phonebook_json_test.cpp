/*
 * The wire: ISO-8859-1 <-> UTF-8, the JSON texts of records, requests and
 * replies pinned whole, and what the readers make of texts they must not trust.
 */
#include <gtest/gtest.h>

#include <cstdio>
#include <sstream>

#include <json/json.h>

#include "phonebook/latin1.h"
#include "phonebook/request.h"
#include "phonebook/standin.h"

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
std::string rowName(const ::testing::TestParamInfo<Row>& info) { return info.param.name; }

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
    const std::pair<const char*, const char*> cases[] = {
        {"\xC3\xA4\xC3\xBF", "\xE4\xFF"},
        {"5 \xE2\x82\xAC", "5 ?"},         // U+20AC
        {"\xE0\xA0\x80\xED\x9F\xBF", "??"},  // U+0800, U+D7FF: the edges of three bytes
        {"\xF0\x9F\x98\x80!", "?!"},       // U+1F600
        {"\xF0\x90\x80\x80\xF4\x8F\xBF\xBF", "??"},  // U+10000, U+10FFFF: the edges of four bytes
        {"\x80z", "?z"},                   // stray continuation byte
        {"\xC0\xAF\xC1\xBF", "????"},      // overlong
        {"\xE0\x80\x80", "???"},           // overlong NUL
        {"\xF0\x80\x80\x80", "????"},      // overlong NUL in four
        {"\xED\xA0\x80", "???"},           // surrogate
        {"\xF4\x90\x80\x80", "????"},      // above U+10FFFF
        {"\xF5\x80\x80\x80\xFF", "?????"},  // never a lead, not even before continuation bytes
        {"\xE2\x82" "A", "??A"},           // cut short, the next character kept
        {"\xC3\xA4\xC3", "\xE4?"},         // cut off by the end
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.second, utf8ToLatin1(std::string(c.first))) << c.first;
}

/* Names and nested texts convert; in place, a name that is not ASCII is refused
 * wherever it stands. */
TEST(Latin1, TreesConvertCopiedOrInPlace)
{
    Json::Value tree = parse(R"({"n": null, "list": ["x", 5, {"b": true}]})");
    tree["list"][0] = "\x80";
    tree["list"][2]["\xE4"] = "\xFF";
    EXPECT_EQ(R"({"list":["\u0080",5,{"b":true,"\u00e4":"\u00ff"}],"n":null})", text(latin1ToUtf8(tree)));
    EXPECT_EQ(tree, utf8ToLatin1(latin1ToUtf8(tree)));
    EXPECT_FALSE(latin1ToUtf8InPlace(&tree));
    tree["list"][2].removeMember("\xE4");
    tree["list"][0] = "\x80";
    EXPECT_TRUE(latin1ToUtf8InPlace(&tree));
    EXPECT_EQ(R"({"list":["\u0080",5,{"b":true}],"n":null})", text(tree));
}

/* ---- the wire forms ----------------------------------------------------- */

namespace {

/* A text on the wire, read and written again by `reread`. It comes back
 * byte for byte, or, given `readsAs`, as that text does. */
struct Wire {
    std::string name;
    Json::Value (*reread)(const Json::Value&);
    bool (*same)(const Json::Value&, const Json::Value&);    // records: equality of what they read as
    Json::Value made;                                        // the writer's own, when not null
    std::string text;
    std::string readsAs = "";
};

template <typename T>
T recordFromJson(const Json::Value& json);
template <>
Contact recordFromJson<Contact>(const Json::Value& json) { return contactFromJson(json); }
template <>
Event recordFromJson<Event>(const Json::Value& json) { return eventFromJson(json); }
template <>
Folder recordFromJson<Folder>(const Json::Value& json) { return folderFromJson(json); }

template <typename T>
Json::Value rereadRecord(const Json::Value& utf8)
{
    return latin1ToUtf8(recordFromJson<T>(utf8ToLatin1(utf8)).toJson());
}

template <typename T>
bool sameRecord(const Json::Value& a, const Json::Value& b)
{
    return recordFromJson<T>(utf8ToLatin1(a)) == recordFromJson<T>(utf8ToLatin1(b));
}

Json::Value rereadRequest(const Json::Value& json)
{
    Request r(0, "");
    std::string error;
    EXPECT_TRUE(requestFromJson(json, r, &error)) << error;
    return r.toJson();
}

Json::Value rereadResponse(const Json::Value& json) { return responseToJson(Response::fromJson(json, "b")); }

template <typename T>
Wire record(const std::string& name, const std::string& text, const Json::Value& made = Json::Value())
{
    return Wire{name, rereadRecord<T>, sameRecord<T>, latin1ToUtf8(made), text};
}

Wire reply(const std::string& name, const std::string& text, const std::string& readsAs)
{
    return Wire{name, rereadResponse, nullptr, Json::Value(), text, readsAs};
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

const Wire kWires[] = {
    record<Contact>("EmptyContact",
                    R"({"backend":"","company":"","entries":[],"extraText1":"","extraText2":"","extraText3":"",)"
                    R"("extraText4":"","extraText5":"","extraText6":"","extraText7":"","firstName":"","lastName":"",)"
                    R"("numbers":[],"text3":"","text7":"","uid":""})",
                    Contact().toJson()),
    record<Contact>("FullContact",
                    R"({"backend":"b","company":"Acme","entries":[{"text1":"a","text2":"b","text3":"c","text4":"d",)"
                    R"("text5":"e","text6":"f","text7":"g","value":-5}],"extraText1":"e1","extraText2":"e2",)"
                    R"("extraText3":"e3","extraText4":"e4","extraText5":"e5","extraText6":"e6","extraText7":"e7",)"
                    R"("firstName":"J\u00f6rg","lastName":"M\u00fcller","numbers":[{"number":"+49711","text1":"home",)"
                    R"("text3":"n3","text4":"n4","value1":1,"value2":2,"value3":2147483647}],"optionalText":"opt",)"
                    R"("text3":"685537 5674","text7":"t7","uid":"u1"})"),
    record<Event>("EmptyEvent", R"({"backend":"","duration":0,"kind":0,"name":"","number":"","timestamp":0,"uid":""})",
                  Event().toJson()),
    record<Folder>("EmptyFolder", R"({"backend":"","count":0,"name":"","uid":""})", Folder().toJson()),
    {"EmptyRequest", rereadRequest, nullptr, Request(0, "").toJson(),
     R"({"offset":0,"params":null,"queryId":0,"size":0,"userId":""})"},
    {"ContactRequest", rereadRequest, nullptr, Json::Value(),
     R"({"offset":10,"params":{"data":"H\u00f6strand","kind":"contact","type":2},"queryId":4294967295,)"
     R"("size":100,"userId":"J\u00f6rg"})"},
    {"EventRequest", rereadRequest, nullptr, Json::Value(),
     R"({"offset":-3,"params":{"data":{"from":-1,"to":["S\u00fcd"]},"kind":"event","type":0},"queryId":7,)"
     R"("size":-4,"userId":""})"},
    {"FolderRequest", rereadRequest, nullptr, Json::Value(),
     R"({"offset":0,"params":{"data":null,"kind":"folder","type":0},"queryId":8,"size":1,"userId":"u"})"},
    {"EmptyResponse", rereadResponse, nullptr, responseToJson(Response()),
     R"({"items":[],"message":"","queryId":0,"total":0,"type":-1})"},
    {"ContactsResponse", rereadResponse, nullptr, Json::Value(),
     R"({"items":[{"backend":"b","company":"","entries":[],"extraText1":"","extraText2":"","extraText3":"",)"
     R"("extraText4":"","extraText5":"","extraText6":"","extraText7":"","firstName":"","lastName":"\u00d6z",)"
     R"("numbers":[],"optionalText":"\u00b5","text3":"69","text7":"","uid":""}],"message":"gr\u00fc\u00df",)"
     R"("queryId":3000000000,"total":7,"type":0})"},
    {"EventsResponse", rereadResponse, nullptr, Json::Value(),
     R"({"items":[{"backend":"b","duration":6,"kind":1,"name":"\u00c4","number":"0","timestamp":4102444800,)"
     R"("uid":"e"}],"message":"","queryId":1,"total":7,"type":1})"},
    {"FoldersResponse", rereadResponse, nullptr, Json::Value(),
     R"({"items":[{"backend":"b","count":3,"name":"\u00df","uid":"f"}],"message":"","queryId":2,"total":7,"type":2})"},
    /* Untrusted replies read as the clean ones. */
    reply("NotAnObject", R"([{"queryId": 1}])", "{}"),
    reply("IdPast32Bits", R"({"queryId": 4294967296, "type": 1})", "{}"),
    reply("IdWithFraction", R"({"queryId": 7.0, "type": 1, "total": 3})", "{}"),
    reply("OutOfRange", R"({"queryId": 7, "type": 9999999999, "total": 2147483648, "message": 5})", R"({"queryId":7})"),
    reply("ItemsNotAList", R"({"queryId": 7, "type": 0, "total": -4, "items": {}})", R"({"queryId":7,"total":-4})"),
    reply("AcknowledgeHasNoItems", R"({"queryId": 7, "type": 3, "items": [{}]})", R"({"queryId": 7, "type": 3})"),
    reply("ItemsNotObjects", R"({"queryId": 7, "type": 2, "items": [1, null, "x", [], true, {}]})",
     R"({"queryId": 7, "type": 2, "items": [{}]})"),
    reply("MembersOfWrongTypes",
     R"({"queryId": 7, "type": 0, "items": [{"uid": 17, "lastName": [], "firstName": "Eva", "numbers": [1,)"
     R"( {"value1": {}, "value2": 2.0, "value3": 3000000000}], "entries": [5, {"value": 1.5}], "optionalText": 5},)"
     R"( {"numbers": {}, "entries": "x"}]})",
     R"({"queryId": 7, "type": 0, "items": [{"firstName": "Eva", "numbers": [{}], "entries": [{}]}, {}]})"),
    reply("BadUtf8AndNamesThatAreNotOurs",
     "{\"queryId\": 7, \"type\": 0, \"items\": [{\"lastName\": \"\\u20ac\xC3\", \"lastNam\\u00e9\": \"x\","
     " \"lastNam\xC1\xA5\": \"y\", \"firstName\": \"\xC3\xA4\", \"a\": 1, \"zz\": 2}]}",
     R"({"queryId": 7, "type": 0, "items": [{"lastName": "??", "firstName": "\u00e4"}]})"),
    reply("TimesNotWhole",
     R"({"queryId": 7, "type": 1, "items": [{"timestamp": 1e3, "kind": true, "duration": 4294967296},)"
     R"( {"timestamp": 9223372036854775808}]})",
     R"({"queryId": 7, "type": 1, "items": [{}, {}]})"),
};

class WireForm : public ::testing::TestWithParam<Wire> {};

}  // namespace

/* In a record every value is read and counts in its equality. */
TEST_P(WireForm, IsItsTextAndComesBackByteForByte)
{
    const Wire& w = GetParam();
    if (!w.made.isNull()) {
        EXPECT_EQ(w.text, text(w.made));
    }
    const Json::Value json = parse(w.text);
    EXPECT_EQ(w.readsAs.empty() ? w.text : text(w.reread(parse(w.readsAs))), text(w.reread(json)));
    if (w.same) {
        EXPECT_TRUE(w.same(json, json));
        for (const Json::Value& v : variants(json))
            EXPECT_FALSE(w.same(v, json)) << text(v);
    }
}

INSTANTIATE_TEST_SUITE_P(Phonebook, WireForm, ::testing::ValuesIn(kWires), rowName<Wire>);
