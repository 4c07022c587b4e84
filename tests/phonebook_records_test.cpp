/*
 * The phonebook records as values (construction, copies, equality), the
 * vanity key, the records' JSON form and the manager's routing to its
 * backend.
 */
#include <gtest/gtest.h>

#include <boost/make_shared.hpp>
#include <json/json.h>

#include "phonebook/manager.h"
#include "phonebook/records.h"

using namespace ZEMBRA::Phonebook;

namespace {

/* A contact with every member set to something of its own. */
Contact fullContact()
{
    Contact c("src", "u1", "", "J\xF6rg", "M\xFCller", "Acme", std::string("opt"));
    c.text7 = "t7";
    c.numbers.emplace_back("home", "+49711", "n3", "n4", 1, 2, -1);
    c.extraText1 = "e1";
    c.extraText4 = "e4";
    c.extraText7 = "e7";
    c.entries.resize(1);
    c.entries[0].text1 = "a";
    c.entries[0].text7 = "g";
    c.entries[0].value = -5;
    return c;
}

}  // namespace

/* ---- values ------------------------------------------------------------ */

TEST(ContactValue, ConstructorsFillTheirMembersAndTheVanity)
{
    const Contact empty;
    EXPECT_TRUE(empty.uid.empty() && empty.firstName.empty() && empty.lastName.empty() && empty.text3.empty());
    EXPECT_TRUE(empty.numbers.empty() && empty.entries.empty() && !empty.optionalText);

    const Contact c("b", "u", "t3", "f", "l", "co", boost::none);
    EXPECT_EQ((std::vector<std::string>{"b", "u", "t3", "f", "l", "co"}),
              (std::vector<std::string>{c.backend, c.uid, c.text3, c.firstName, c.lastName, c.company}));
    EXPECT_FALSE(c.optionalText);
    const Contact o("b", "u", "", "f", "l", "co", std::string("x"));
    ASSERT_TRUE(o.optionalText);
    EXPECT_EQ("x", *o.optionalText);
    EXPECT_EQ("5 3", o.text3) << "calcVanity runs last, on the finished names";
}

TEST(ContactValue, CopiesAreWholeAndIndependent)
{
    const Contact full = fullContact();
    Contact fiveNumbers("b", "u", "", "", "", "", boost::none);
    fiveNumbers.numbers.resize(5);
    Contact target = fiveNumbers;
    target = full;   // fewer numbers, the optional engaged
    EXPECT_EQ(full, target);
    target = fiveNumbers;   // more numbers, the optional disengaged
    EXPECT_EQ(fiveNumbers, target);
    Contact& alias = target;
    target = alias;
    EXPECT_EQ(fiveNumbers, target) << "assigned to itself";

    Contact original = fullContact();
    std::vector<Contact> list;
    list.push_back(original);
    original.lastName = "Other";
    original.numbers[0].number = "999";
    original.entries[0].text1 = "changed";
    original.optionalText = boost::none;
    list.reserve(50);   // moves the elements: the copies must survive that too
    EXPECT_EQ(full, list[0]);
}

/* The tests of copies, JSON and the daemon's store rely on == seeing every
 * member. */
TEST(ContactValue, EqualityNoticesEveryMember)
{
    const std::vector<void (*)(Contact&)> changes = {
        [](Contact& c) { c.backend += "x"; },    [](Contact& c) { c.uid += "x"; },
        [](Contact& c) { c.text3 += "x"; },      [](Contact& c) { c.firstName += "x"; },
        [](Contact& c) { c.lastName += "x"; },   [](Contact& c) { c.company += "x"; },
        [](Contact& c) { c.text7 += "x"; },      [](Contact& c) { c.extraText1 += "x"; },
        [](Contact& c) { c.extraText2 += "x"; }, [](Contact& c) { c.extraText3 += "x"; },
        [](Contact& c) { c.extraText4 += "x"; }, [](Contact& c) { c.extraText5 += "x"; },
        [](Contact& c) { c.extraText6 += "x"; }, [](Contact& c) { c.extraText7 += "x"; },
        [](Contact& c) { c.optionalText = boost::none; },
        [](Contact& c) { c.numbers[0].text1 += "x"; }, [](Contact& c) { c.numbers[0].number += "x"; },
        [](Contact& c) { c.numbers[0].text3 += "x"; }, [](Contact& c) { c.numbers[0].text4 += "x"; },
        [](Contact& c) { ++c.numbers[0].value1; },     [](Contact& c) { ++c.numbers[0].value2; },
        [](Contact& c) { ++c.numbers[0].value3; },     [](Contact& c) { c.entries[0].text1 += "x"; },
        [](Contact& c) { c.entries[0].text2 += "x"; }, [](Contact& c) { c.entries[0].text3 += "x"; },
        [](Contact& c) { c.entries[0].text4 += "x"; }, [](Contact& c) { c.entries[0].text5 += "x"; },
        [](Contact& c) { c.entries[0].text6 += "x"; }, [](Contact& c) { c.entries[0].text7 += "x"; },
        [](Contact& c) { ++c.entries[0].value; },
    };
    for (size_t i = 0; i < changes.size(); ++i) {
        Contact c = fullContact();
        changes[i](c);
        EXPECT_FALSE(c == fullContact()) << "change " << i;
    }
}

TEST(ContactVanity, KeysOfLettersUmlautsAndDigitsFillOnlyAnEmptyText3)
{
    EXPECT_EQ("22233344455566677778889999", vanityKey("abcdefghijklmnopqrstuvwxyz"));
    EXPECT_EQ("22233344455566677778889999", vanityKey("ABCDEFGHIJKLMNOPQRSTUVWXYZ"));
    EXPECT_EQ("2268", vanityKey("\xC4\xE4\xD6\xFC"));
    EXPECT_EQ("4767", vanityKey("Gro\xDF"));
    EXPECT_EQ("23469", vanityKey("\xC7\xE9\xCF\xF1\xFF"));
    EXPECT_EQ("0711", vanityKey("(0711) -\xD7\xF7\xA9."));

    Contact c = fullContact();
    const Contact expected = c;
    c.text3.clear();
    c.calcVanity();
    EXPECT_EQ(expected, c) << "only text3 may change";
    EXPECT_EQ("685537 5674", c.text3);
    EXPECT_EQ("mine", Contact("b", "u", "mine", "Anna", "Berg", "", boost::none).text3);
}

/* ---- JSON form --------------------------------------------------------- */

TEST(RecordJson, RecordsSurviveTheRoundTrip)
{
    Contact c = fullContact();
    EXPECT_EQ(c, Contact::fromJson(c.toJson()));
    c.optionalText = boost::none;
    EXPECT_FALSE(c.toJson().isMember("optionalText"));
    EXPECT_EQ(c, Contact::fromJson(c.toJson()));
    const Event e("b", "e1", Event::Outgoing, "0711", "G\xE4nsel", 4102444800LL, 61);
    EXPECT_EQ(e, Event::fromJson(e.toJson())) << "a timestamp beyond 32 bits";
    const Folder f("b", "f1", "Gesch\xE4" "ft", 12);
    EXPECT_EQ(f, Folder::fromJson(f.toJson()));
}

/* The names are what the daemon reads; docs/phonebook-json.md lists them. */
TEST(RecordJson, ContactMemberNames)
{
    EXPECT_EQ((std::vector<std::string>{"backend", "company", "entries", "extraText1", "extraText2",
                                        "extraText3", "extraText4", "extraText5", "extraText6", "extraText7",
                                        "firstName", "lastName", "numbers", "optionalText", "text3", "text7",
                                        "uid"}),
              fullContact().toJson().getMemberNames());
    EXPECT_EQ((std::vector<std::string>{"number", "text1", "text3", "text4", "value1", "value2", "value3"}),
              fullContact().toJson()["numbers"][0].getMemberNames());
}

TEST(RecordJson, WrongMembersReadAsDefaults)
{
    Json::Value j;
    j["uid"] = 17;
    j["lastName"] = Json::Value(Json::arrayValue);
    j["firstName"] = "Eva";
    j["numbers"] = "0711";
    j["entries"].append(5);
    j["entries"].append(Json::Value(Json::objectValue));
    j["optionalText"] = Json::Value();
    Contact expected;
    expected.firstName = "Eva";
    expected.entries.resize(1);
    EXPECT_EQ(expected, Contact::fromJson(j));
    EXPECT_EQ(Contact(), Contact::fromJson(Json::Value("not an object")));

    Json::Value n;
    n["value1"] = Json::UInt(3000000000u);
    n["value2"] = 2.0;   // a fraction or exponent is never an integer on the wire
    n["value3"] = -7;
    EXPECT_EQ(ContactNumber("", "", "", "", 0, 0, -7), ContactNumber::fromJson(n));

    for (const Json::Value& timestamp : {Json::Value(Json::UInt64(1) << 63), Json::Value(1e9)}) {
        Json::Value ev;
        ev["timestamp"] = timestamp;
        ev["kind"] = true;
        ev["duration"] = 1e3;
        EXPECT_EQ(Event(), Event::fromJson(ev)) << timestamp;
    }
}

/* ---- manager ----------------------------------------------------------- */

namespace {

class FakeClient : public AbstractQueryClient {
public:
    int finishedCalls = 0;
    void requestFinished() override { ++finishedCalls; }
    void addContact(const Contact&, CacheInfo) override {}
    void addEvent(const Event&, CacheInfo) override {}
    void addFolder(const Folder&, CacheInfo) override {}
};

/* Records the calls; a search calls back into the manager, as a backend
 * that finishes a client at once may. */
class FakeBackend : public SearchBackendInterface {
public:
    explicit FakeBackend(Manager& manager) : manager(manager) {}
    std::string id() const override { return "fake"; }
    void startQuery(boost::shared_ptr<AbstractQueryClient> client) override
    {
        clients.push_back(client);
        manager.addContact(&spare);
    }
    void addContact(Contact* c) override { calls.push_back("add " + c->uid); }
    void deleteContact(Contact* c) override { calls.push_back("del " + c->uid); }
    void addEvent(Event* e) override { calls.push_back("addEvent " + e->uid); }
    void deleteEvent(Event* e) override { calls.push_back("delEvent " + e->uid); }

    Manager& manager;
    Contact spare{"b", "spare", "", "", "", "", boost::none};
    std::vector<boost::shared_ptr<AbstractQueryClient>> clients;
    std::vector<std::string> calls;
};

}  // namespace

TEST(ManagerRouting, WithoutBackendSearchFinishesTheClientAtOnce)
{
    Manager m;
    auto client = boost::make_shared<FakeClient>();
    EXPECT_FALSE(m.search(client, Manager::SearchBackends));
    EXPECT_TRUE(client->finished);
    EXPECT_EQ(AbstractQueryClient::ResultNone, client->result);
    EXPECT_EQ(1, client->finishedCalls);
    EXPECT_FALSE(m.search(boost::shared_ptr<AbstractQueryClient>(), Manager::SearchAll));
    Contact c;
    Event e;
    EXPECT_FALSE(m.addContact(&c) || m.deleteContact(&c) || m.addEvent(&e) || m.deleteEvent(&e));
}

TEST(ManagerRouting, CallsReachTheLastRegisteredBackendWhichMayCallBack)
{
    Manager m;
    FakeBackend first(m), backend(m);
    m.registerBackend(&first);
    m.registerBackend(&backend);
    auto client = boost::make_shared<FakeClient>();
    EXPECT_TRUE(m.search(client, Manager::SearchLocal));
    ASSERT_EQ(1u, backend.clients.size());
    EXPECT_EQ(client, backend.clients[0]);
    EXPECT_FALSE(client->finished) << "the backend finishes it, not the manager";

    Contact c("b", "c1", "", "", "", "", boost::none);
    Event e("b", "e1", 0, "", "", 0, 0);
    EXPECT_TRUE(m.addContact(&c) && m.deleteContact(&c) && m.addEvent(&e) && m.deleteEvent(&e));
    EXPECT_FALSE(m.addContact(nullptr) || m.deleteContact(nullptr) || m.addEvent(nullptr) || m.deleteEvent(nullptr));
    EXPECT_EQ((std::vector<std::string>{"add spare", "add c1", "del c1", "addEvent e1", "delEvent e1"}), backend.calls);
    EXPECT_TRUE(first.clients.empty() && first.calls.empty());
}
