/*
 * The phonebook records as values, the wire (ISO-8859-1 <-> UTF-8), the JSON
 * texts of records, requests and replies pinned whole, and what the readers
 * make of texts they must not trust.
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
    Json::Value root;
    std::string error;
    std::istringstream in(text);
    EXPECT_TRUE(Json::parseFromStream(Json::CharReaderBuilder(), in, &root, &error)) << error << text;
    return root;
}

/* One line, members in key order, non-ASCII as \u escapes: the daemon's form. */
std::string text(const Json::Value& json)
{
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    return Json::writeString(builder, json);
}

}  // namespace

/* The six texts go to the first six members, the optional text is engaged
 * only with a value, and text3, when not given, gets the keypad keys of last
 * and first name; nothing else is set. */
TEST(ContactValue, FullConstructorFillsItsMembersThenTheVanity)
{
    const struct { const char *text3, *first, *last; boost::optional<std::string> optional; const char* vanity; }
        cases[] = {{"", "J\xF6rg", "M\xFCller", std::string("x"), "685537 5674"}, {"", "", "Berg", boost::none, "2374"},
                   {"", "Anna", "", std::string(), "2662"}, {"", "-", "Berg", boost::none, "2374"},
                   {"mine", "Anna", "Berg", boost::none, "mine"}};
    for (const auto& c : cases) {
        Contact want;   // compared member by member, every member (see WireForm)
        want.backend = "b", want.uid = "u", want.text3 = c.vanity, want.firstName = c.first, want.lastName = c.last;
        want.company = "co", want.optionalText = c.optional;
        EXPECT_EQ(want, Contact("b", "u", c.text3, c.first, c.last, "co", c.optional)) << c.vanity;
    }
}

/* Keypad keys (2 abc .. 9 wxyz) of every ISO-8859-1 byte: accented letters
 * take their base letter's (eth as d, thorn as t, sharp s as s); the
 * multiplication and division signs and everything but letters and digits
 * have none. */
TEST(ContactValue, VanityKeyOfEveryByte)
{
    std::string all;
    for (int b = 0; b < 256; ++b)
        all += static_cast<char>(b);
    EXPECT_EQ(std::string("0123456789") + "22233344455566677778889999" + "22233344455566677778889999" +
                  "22222222" "3333" "4444" "3" "666666" "6" "8888" "9" "8" "7" +   // 0xC0..0xDF
                  "22222222" "3333" "4444" "3" "666666" "6" "8888" "9" "8" "9",    // 0xE0..0xFF
              vanityKey(all));
}

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
        {"\xC3\xA4\xC3\xBF", "\xE4\xFF"}, {"5 \xE2\x82\xAC", "5 ?"},  // U+20AC
        {"\xE0\xA0\x80\xED\x9F\xBF", "??"},                          // U+0800, U+D7FF: the edges of three bytes
        {"\xF0\x9F\x98\x80!", "?!"},                                  // U+1F600
        {"\xF0\x90\x80\x80\xF4\x8F\xBF\xBF", "??"},                   // U+10000, U+10FFFF: the edges of four bytes
        {"\x80z", "?z"}, {"\xC0\xAF\xC1\xBF", "????"},                // stray continuation byte; overlong
        {"\xE0\x80\x80", "???"}, {"\xF0\x80\x80\x80", "????"},        // overlong NUL in three, in four
        {"\xED\xA0\x80", "???"}, {"\xF4\x90\x80\x80", "????"},        // surrogate; above U+10FFFF
        {"\xF5\x80\x80\x80\xFF", "?????"},  // never a lead, not even before continuation bytes
        {"\xE2\x82" "A", "??A"}, {"\xC3\xA4\xC3", "\xE4?"},           // cut short, the next character kept; by the end
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

/* How a form is read and written again; a record's `same` is the equality of
 * what two texts read as, `made` the writer's form of a default value. */
struct Form {
    Json::Value (*reread)(const Json::Value&);
    bool (*same)(const Json::Value&, const Json::Value&);
    Json::Value (*made)();
};
template <typename T, T (*from)(const Json::Value&)>
const Form kRecord = {[](const Json::Value& j) { return latin1ToUtf8(from(utf8ToLatin1(j)).toJson()); },
                      [](const Json::Value& a, const Json::Value& b) {
                          return from(utf8ToLatin1(a)) == from(utf8ToLatin1(b));
                      },
                      [] { return T().toJson(); }};
const Form &kContact = kRecord<Contact, contactFromJson>, &kEvent = kRecord<Event, eventFromJson>,
           &kFolder = kRecord<Folder, folderFromJson>;
const Form kRequest = {[](const Json::Value& json) {
                           Request r(0, "");
                           std::string error;
                           EXPECT_TRUE(requestFromJson(json, r, &error)) << error;
                           return r.toJson();
                       },
                       nullptr, [] { return Request(0, "").toJson(); }};
const Form kReply = {[](const Json::Value& j) { return responseToJson(Response::fromJson(j, "b")); }, nullptr,
                     [] { return responseToJson(Response()); }};

/* A text on the wire: read and written again it comes back byte for byte,
 * or, given `readsAs`, as that text does. A row named Empty... is also the
 * writer's form of a default value. */
struct Wire {
    const char* name;
    const Form& form;
    std::string text, readsAs = "";
};

/* Copies of `json` with one value changed each: a text gets an "x", a number one more. */
std::vector<Json::Value> variants(const Json::Value& json)
{
    if (json.isString())
        return {json.asString() + "x"};
    if (json.isInt64())
        return {Json::Value(static_cast<Json::Int64>(json.asInt64() + 1))};
    std::vector<Json::Value> out;
    for (auto it = json.begin(); it != json.end(); ++it)
        for (const Json::Value& v : variants(*it)) {
            out.push_back(json);
            (json.isArray() ? out.back()[it.index()] : out.back()[it.name()]) = v;
        }
    return out;
}

const Wire kWires[] = {
    {"EmptyContact", kContact,
     R"({"backend":"","company":"","entries":[],"extraText1":"","extraText2":"","extraText3":"",)"
     R"("extraText4":"","extraText5":"","extraText6":"","extraText7":"","firstName":"","lastName":"",)"
     R"("numbers":[],"text3":"","text7":"","uid":""})"},
    {"FullContact", kContact,
     R"({"backend":"b","company":"Acme","entries":[{"text1":"a","text2":"b","text3":"c","text4":"d",)"
     R"("text5":"e","text6":"f","text7":"g","value":-5}],"extraText1":"e1","extraText2":"e2",)"
     R"("extraText3":"e3","extraText4":"e4","extraText5":"e5","extraText6":"e6","extraText7":"e7",)"
     R"("firstName":"J\u00f6rg","lastName":"M\u00fcller","numbers":[{"number":"+49711","text1":"home",)"
     R"("text3":"n3","text4":"n4","value1":1,"value2":2,"value3":2147483647}],"optionalText":"opt",)"
     R"("text3":"685537 5674","text7":"t7","uid":"u1"})"},
    {"EmptyEvent", kEvent, R"({"backend":"","duration":0,"kind":0,"name":"","number":"","timestamp":0,"uid":""})"},
    {"EmptyFolder", kFolder, R"({"backend":"","count":0,"name":"","uid":""})"},
    {"EmptyRequest", kRequest, R"({"offset":0,"params":null,"queryId":0,"size":0,"userId":""})"},
    {"ContactRequest", kRequest,
     R"({"offset":10,"params":{"data":"H\u00f6strand","kind":"contact","type":2},"queryId":4294967295,)"
     R"("size":100,"userId":"J\u00f6rg"})"},
    {"EventRequest", kRequest,
     R"({"offset":-3,"params":{"data":{"from":-1,"to":["S\u00fcd"]},"kind":"event","type":0},"queryId":7,)"
     R"("size":-4,"userId":""})"},
    {"FolderRequest", kRequest,
     R"({"offset":0,"params":{"data":null,"kind":"folder","type":0},"queryId":8,"size":1,"userId":"u"})"},
    {"EmptyResponse", kReply, R"({"items":[],"message":"","queryId":0,"total":0,"type":-1})"},
    {"ContactsResponse", kReply,
     R"({"items":[{"backend":"b","company":"","entries":[],"extraText1":"","extraText2":"","extraText3":"",)"
     R"("extraText4":"","extraText5":"","extraText6":"","extraText7":"","firstName":"","lastName":"\u00d6z",)"
     R"("numbers":[],"optionalText":"\u00b5","text3":"69","text7":"","uid":""}],"message":"gr\u00fc\u00df",)"
     R"("queryId":3000000000,"total":7,"type":0})"},
    {"EventsResponse", kReply,
     R"({"items":[{"backend":"b","duration":6,"kind":1,"name":"\u00c4","number":"0","timestamp":4102444800,)"
     R"("uid":"e"}],"message":"","queryId":1,"total":7,"type":1})"},
    {"FoldersResponse", kReply,
     R"({"items":[{"backend":"b","count":3,"name":"\u00df","uid":"f"}],"message":"","queryId":2,"total":7,"type":2})"},
    /* Untrusted replies read as the clean ones. */
    {"NotAnObject", kReply, R"([{"queryId": 1}])", "{}"},
    {"IdPast32Bits", kReply, R"({"queryId": 4294967296, "type": 1})", "{}"},
    {"IdWithFraction", kReply, R"({"queryId": 7.0, "type": 1, "total": 3})", "{}"},
    {"OutOfRange", kReply, R"({"queryId": 7, "type": 9999999999, "total": 2147483648, "message": 5})",
     R"({"queryId":7})"},
    {"ItemsNotAList", kReply, R"({"queryId": 7, "type": 0, "total": -4, "items": {}})", R"({"queryId":7,"total":-4})"},
    {"AcknowledgeHasNoItems", kReply, R"({"queryId": 7, "type": 3, "items": [{}]})", R"({"queryId": 7, "type": 3})"},
    {"ItemsNotObjects", kReply, R"({"queryId": 7, "type": 2, "items": [1, null, "x", [], true, {}]})",
     R"({"queryId": 7, "type": 2, "items": [{}]})"},
    {"MembersOfWrongTypes", kReply,
     R"({"queryId": 7, "type": 0, "items": [{"uid": 17, "lastName": [], "firstName": "Eva", "numbers": [1,)"
     R"( {"value1": {}, "value2": 2.0, "value3": 3000000000}], "entries": [5, {"value": 1.5}], "optionalText": 5},)"
     R"( {"numbers": {}, "entries": "x"}]})",
     R"({"queryId": 7, "type": 0, "items": [{"firstName": "Eva", "numbers": [{}], "entries": [{}]}, {}]})"},
    {"BadUtf8AndNamesThatAreNotOurs", kReply,
     "{\"queryId\": 7, \"type\": 0, \"items\": [{\"lastName\": \"\\u20ac\xC3\", \"lastNam\\u00e9\": \"x\","
     " \"lastNam\xC1\xA5\": \"y\", \"firstName\": \"\xC3\xA4\", \"a\": 1, \"zz\": 2}]}",
     R"({"queryId": 7, "type": 0, "items": [{"lastName": "??", "firstName": "\u00e4"}]})"},
    {"TimesNotWhole", kReply,
     R"({"queryId": 7, "type": 1, "items": [{"timestamp": 1e3, "kind": true, "duration": 4294967296},)"
     R"( {"timestamp": 9223372036854775808}]})",
     R"({"queryId": 7, "type": 1, "items": [{}, {}]})"},
};

class WireForm : public ::testing::TestWithParam<Wire> {};

}  // namespace

/* In a record every value is read and counts in its equality. */
TEST_P(WireForm, IsItsTextAndComesBackByteForByte)
{
    const Wire& w = GetParam();
    if (std::string(w.name).rfind("Empty", 0) == 0) {
        EXPECT_EQ(w.text, text(w.form.made()));
    }
    const Json::Value json = parse(w.text);
    EXPECT_EQ(w.readsAs.empty() ? w.text : text(w.form.reread(parse(w.readsAs))), text(w.form.reread(json)));
    if (w.form.same) {
        EXPECT_TRUE(w.form.same(json, json));
        for (const Json::Value& v : variants(json))
            EXPECT_FALSE(w.form.same(v, json)) << text(v);
    }
}

INSTANTIATE_TEST_SUITE_P(Phonebook, WireForm, ::testing::ValuesIn(kWires),
                         [](const auto& info) { return std::string(info.param.name); });
