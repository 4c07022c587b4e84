/*
 * The phonebook records as values (constructors, the vanity key, copies)
 * and the manager's routing to its backend. Their JSON form is
 * phonebook_json_test's.
 */
#include <gtest/gtest.h>

#include <boost/make_shared.hpp>

#include "phonebook/manager.h"
#include "phonebook/records.h"

using namespace ZEMBRA::Phonebook;

TEST(ContactValue, FullConstructorFillsSixMembersAndTheOptionalThenTheVanity)
{
    Contact c("b", "u", "", "J\xF6rg", "M\xFCller", "co", std::string("x"));
    EXPECT_EQ((std::vector<std::string>{"b", "u", "685537 5674", "J\xF6rg", "M\xFCller", "co", "x"}),
              (std::vector<std::string>{c.backend, c.uid, c.text3, c.firstName, c.lastName, c.company,
                                        c.optionalText.value_or("none")}));
    c.backend = c.uid = c.text3 = c.firstName = c.lastName = c.company = "";
    c.optionalText = boost::none;
    EXPECT_EQ(Contact(), c) << "nothing else is set";
    EXPECT_EQ(Contact().toJson(), Contact("", "", "", "", "", "", boost::none).toJson());
}

/* text3 holds the keys of last and first name; one given is kept. */
TEST(ContactValue, VanityFillsOnlyAnEmptyText3)
{
    const struct {
        const char* first;
        const char* last;
        const char* text3;
        const char* vanity;
    } cases[] = {
        {"Anna", "Berg", "", "2374 2662"}, {"", "Berg", "", "2374"}, {"Anna", "", "", "2662"},
        {"-", "Berg", "", "2374"},         {"Anna", "Berg", "mine", "mine"},
    };
    for (const auto& c : cases) {
        const Contact contact("b", "u", c.text3, c.first, c.last, "co", boost::none);
        EXPECT_EQ(c.vanity, contact.text3) << c.first << " " << c.last;
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

/* A contact with three numbers and an optional text over one with five
 * and none, and back; copies in a vector are their own. */
TEST(ContactValue, AssignmentAndCopiesAreWhole)
{
    Contact three("b", "u3", "", "f", "l", "co", std::string("o"));
    three.numbers.assign(3, ContactNumber("t1", "0711", "t3", "t4", 1, 2, -1));
    three.entries.resize(2);
    Contact five;
    five.numbers.resize(5);
    Contact target = five;
    target = three;
    EXPECT_EQ(three, target);
    target = five;
    EXPECT_EQ(five, target);
    Contact& alias = target;
    target = alias;
    EXPECT_EQ(five, target);

    std::vector<Contact> list{three};
    const Contact before = three;
    three.numbers[0].number = "1";
    three.optionalText = boost::none;
    list.reserve(50);
    EXPECT_EQ(before, list[0]);
}

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
    void startQuery(boost::shared_ptr<AbstractQueryClient>) override
    {
        calls += "search ";
        manager.addContact(&spare);
    }
    void addContact(Contact* c) override { calls += "add " + c->uid + " "; }
    void deleteContact(Contact* c) override { calls += "del " + c->uid + " "; }
    void addEvent(Event* e) override { calls += "addEvent " + e->uid + " "; }
    void deleteEvent(Event* e) override { calls += "delEvent " + e->uid + " "; }

    Manager& manager;
    Contact spare{"b", "spare", "", "", "", "", boost::none};
    std::string calls;
};

/* Every call, and which of them the manager took. */
std::string route(Manager& m, Contact* c, Event* e)
{
    auto client = boost::make_shared<FakeClient>();
    std::string out;
    for (bool taken : {m.search(client, Manager::SearchAll), m.addContact(c), m.deleteContact(c), m.addEvent(e),
                       m.deleteEvent(e)})
        out += taken ? "1" : "0";
    return out + " finished " + std::to_string(client->finishedCalls) +
           (client->finished ? " result " + std::to_string(client->result) : " open");
}

}  // namespace

TEST(ManagerRouting, CallsGoToTheLastRegisteredBackendOrFinishAtOnce)
{
    Manager m;
    Contact c("b", "c1", "", "", "", "", boost::none);
    Event e("b", "e1", 0, "", "", 0, 0);
    EXPECT_EQ("00000 finished 1 result 1", route(m, &c, &e));
    FakeBackend first(m), backend(m);
    m.registerBackend(&first);
    m.registerBackend(&backend);
    EXPECT_EQ("11111 finished 0 open", route(m, &c, &e));
    EXPECT_EQ("10000 finished 0 open", route(m, nullptr, nullptr));
    EXPECT_FALSE(m.search(boost::shared_ptr<AbstractQueryClient>(), Manager::SearchAll));
    EXPECT_EQ("search add spare add c1 del c1 addEvent e1 delEvent e1 search add spare ", backend.calls);
    EXPECT_EQ("", first.calls);
}
