/*
 * webconfd's SQLite phonebook on a database in a private directory: each
 * search meaning, changes, ISO-8859-1 texts byte for byte, files it must
 * refuse, and the import of JSON lines. Paging is seen through the server
 * (webconfd_server_test).
 */
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <chrono>
#include <cstdint>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "import.h"
#include "process_util.h"
#include "store.h"

using ZEMBRA::Phonebook::Contact;
using ZEMBRA::Phonebook::Event;
using ZEMBRA::Phonebook::Folder;
using webconfd::Change;
using webconfd::Found;
using webconfd::Page;
using webconfd::Store;
using Uids = std::vector<std::string>;

namespace {

const Page kAll{0, 1000};

Contact contact(const std::string& uid, const std::string& first, const std::string& last,
                const std::vector<std::string>& numbers = {})
{
    Contact c("", uid, "", first, last, "", boost::none);
    for (const std::string& n : numbers)
        c.numbers.emplace_back("", n, "", "", 1, 2, -1);
    return c;
}

Uids uids(const Found<Contact>& found)
{
    Uids out;
    for (const Contact& c : found.items)
        out.push_back(c.uid);
    return out;
}

class StoreTest : public ::testing::Test {
protected:
    void SetUp() override { reopen(); }

    void reopen()
    {
        std::string error;
        ASSERT_TRUE(store.open(path, &error)) << error;
    }

    /* A small phonebook: names with umlauts in both cases, numbers written
     * in several ways. */
    void fill()
    {
        for (Contact c : {contact("1", "Anna", "Weber", {"+49 (0)69 1234 5678", "0151 23456789"}),
                          contact("2", "S\xF6ren", "W\xF6hrle", {"07644 1234"}),   // Sören Wöhrle
                          contact("3", "Wiebke", "Z\xF6llner", {"0561 7766554"}),
                          contact("4", "Falmer", "\xD6hlenbach", {"+43 662 87 65 43"}),
                          contact("11", "Ingrid", "Nu\xDF" "baum", {"0761/445566"}),
                          contact("12", "J\xF6rg", "Fischer", {"0711 98765-0", "0711 98765-12"})})
            ASSERT_EQ(store.putContact(c), Change::Added) << c.uid;
    }

    TempDir dir;
    const std::string path = dir.path() + "/pb.db";
    Store store;
};

/* ---- searches ---------------------------------------------------------- */

TEST_F(StoreTest, EachSearchMeaningFindsItsContactsInPhonebookOrder)
{
    fill();
    typedef Found<Contact> (Store::*Search)(const std::string&, const Page&);
    const struct {
        Search search;
        const char* key;
        Uids found;
    } cases[] = {
        {&Store::contactsById, "1", {"1"}},
        {&Store::contactsById, "", {}},
        /* Any writing of any of the contact's numbers, but neither a part
         * of one nor the bare trunk prefix. */
        {&Store::contactsByNumber, "06912345678", {"1"}},
        {&Store::contactsByNumber, "+4915123456789", {"1"}},
        {&Store::contactsByNumber, "98765", {}},
        {&Store::contactsByNumber, "0", {}},
        {&Store::contactsByNumber, "", {}},
        /* A case-insensitive prefix of the last or the first name. */
        {&Store::contactsByName, "W", {"1", "2", "3"}},
        {&Store::contactsByName, "w\xD6H", {"2"}},
        {&Store::contactsByName, "eber", {}},
        /* Empty: everything (Öhlenbach after Nußbaum, Wöhrle after Weber). */
        {&Store::contactsByName, "", {"12", "11", "4", "1", "2", "3"}},
        /* The keypad digits, or letters as their keys, of the start of the
         * last or first name. */
        {&Store::contactsByKeypad, "9647", {"2"}},
        {&Store::contactsByKeypad, "5674", {"12"}},
        {&Store::contactsByKeypad, "W\xF6h", {"2"}},
        {&Store::contactsByKeypad, "-", {}},
    };
    for (const auto& c : cases) {
        const Found<Contact> found = (store.*c.search)(c.key, kAll);
        EXPECT_EQ(uids(found), c.found) << c.key;
        EXPECT_EQ(found.total, static_cast<int32_t>(c.found.size())) << c.key;
    }
    /* The index is the position in phonebook order. */
    EXPECT_EQ(uids(store.contactAtPosition(0, kAll)), Uids{"12"});
    EXPECT_EQ(uids(store.contactAtPosition(5, kAll)), Uids{"3"});
    EXPECT_EQ(store.contactAtPosition(6, kAll).total, 0);
    EXPECT_EQ(store.contactAtPosition(-1, kAll).total, 0);
}

/* ---- changes ----------------------------------------------------------- */

TEST_F(StoreTest, FreshUidsSkipTakenOnesAndAreNotGivenOutTwice)
{
    Contact taken = contact("2", "Taken", "Two");
    Contact a = contact("", "A", "First");
    Contact b = contact("", "B", "Second");
    ASSERT_EQ(store.putContact(taken), Change::Added);
    ASSERT_EQ(store.putContact(a), Change::Added);
    ASSERT_EQ(store.putContact(b), Change::Added);
    EXPECT_EQ(a.uid, "1");
    EXPECT_EQ(b.uid, "3");
    ASSERT_EQ(store.deleteContact("3"), Change::Deleted);
    reopen();
    Contact c = contact("", "C", "Third");
    store.putContact(c);
    EXPECT_EQ(c.uid, "4");
    EXPECT_EQ(store.contactCount(), 3);
}

TEST_F(StoreTest, AKnownUidReplacesTheContactAndItsNumbers)
{
    fill();
    Contact again = contact("1", "Anna", "Weber-Lang", {"030 111"});
    EXPECT_EQ(store.putContact(again), Change::Replaced);
    EXPECT_EQ(store.contactCount(), 6);
    EXPECT_EQ(store.contactsByNumber("06912345678", kAll).total, 0);
    const Found<Contact> found = store.contactsByNumber("+4930111", kAll);
    ASSERT_EQ(found.items.size(), 1u);
    EXPECT_EQ(found.items[0].lastName, "Weber-Lang");
    EXPECT_EQ(found.items[0].numbers.size(), 1u);
    EXPECT_EQ(found.items[0].text3, "932375264 2662") << "an empty text3 is filled from the names";
}

TEST_F(StoreTest, DeletedContactIsGoneWithItsNumbersAndMemberships)
{
    fill();
    Folder folder("", "f1", "Familie", 0);
    ASSERT_EQ(store.putFolder(folder, {"1", "2"}), Change::Added);
    ASSERT_EQ(store.deleteContact("1"), Change::Deleted);
    EXPECT_EQ(store.contactsById("1", kAll).total, 0);
    EXPECT_EQ(store.contactsByNumber("0151 23456789", kAll).total, 0);
    EXPECT_EQ(store.folders(kAll).items.at(0).count, 1);
    Contact back = contact("1", "Anna", "Weber");
    store.putContact(back);
    EXPECT_EQ(store.folders(kAll).items.at(0).count, 1) << "a new contact with the old uid is no member";
}

TEST_F(StoreTest, EveryLatin1ByteAndEveryMemberComesBackUnchanged)
{
    std::string bytes;
    for (int c = 1; c < 256; c++)
        bytes += static_cast<char>(c);
    Contact c("ignored", "u\xE9-1", "t3\xFF", "Fr\xE9" "d\xE9ric", "M\xFCller " + bytes, "H\xF6strand " + bytes,
              std::string("opt\xDF"));
    c.text7 = "seven\xB0";
    c.extraText1 = bytes;
    c.extraText7 = "\xA9 7";
    c.numbers.emplace_back("gesch\xE4" "ftlich", "+49 711 1", "\xB5", "\xBD", -1, 0x7FFFFFFF, -2147483647 - 1);
    c.entries.resize(1);
    c.entries[0].text1 = "\xE6";
    c.entries[0].value = 42;
    ASSERT_EQ(store.putContact(c), Change::Added);

    reopen();
    const Found<Contact> found = store.contactsById("u\xE9-1", kAll);
    ASSERT_EQ(found.items.size(), 1u);
    Contact expected = c;
    expected.backend = "webconfd";
    EXPECT_TRUE(found.items[0] == expected);
}

TEST_F(StoreTest, EventsInARangeComeNewestFirst)
{
    const int64_t times[] = {300, 100, 200, 400};
    for (int i = 0; i < 4; i++) {
        Event e("", "", 1, "0711", "N\xE4he", times[i], 5);
        ASSERT_EQ(store.putEvent(e), Change::Added);
        EXPECT_EQ(e.uid, "e" + std::to_string(i + 1));
    }
    const Found<Event> mid = store.eventsBetween(200, 300, kAll);
    ASSERT_EQ(mid.items.size(), 2u);
    EXPECT_EQ(mid.items[0].timestamp, 300);
    EXPECT_EQ(mid.items[1].timestamp, 200);
    EXPECT_EQ(mid.items[0].name, "N\xE4he");
    const Found<Event> all = store.eventsBetween(INT64_MIN, INT64_MAX, Page{1, 2});
    EXPECT_EQ(all.total, 4);
    EXPECT_EQ(all.items.at(0).timestamp, 300);
}

TEST_F(StoreTest, FoldersAreListedByNameAndCountTheirExistingMembers)
{
    fill();
    Folder work("", "f2", "Gesch\xE4" "ftlich", 99);
    Folder family("", "f1", "Familie", 0);
    ASSERT_EQ(store.putFolder(work, {"1", "12", "404"}), Change::Added);
    ASSERT_EQ(store.putFolder(family, {"3"}), Change::Added);

    const Found<Folder> found = store.folders(kAll);
    ASSERT_EQ(found.total, 2);
    EXPECT_EQ(found.items[0].name, "Familie");
    EXPECT_EQ(found.items[1].name, "Gesch\xE4" "ftlich");
    EXPECT_EQ(found.items[1].count, 2) << "404 names no contact";
}

/* Two daemons on one file: a writer waits (up to 2 s) for the other's
 * transaction instead of failing at once with "database is locked". */
TEST_F(StoreTest, WriterWaitsForAnotherWritersTransaction)
{
    Store other;
    std::string error;
    ASSERT_TRUE(other.open(path, &error)) << error;
    ASSERT_TRUE(other.begin());
    Contact held = contact("", "Held", "Open");
    ASSERT_EQ(other.putContact(held), Change::Added);   // the other holds the write lock
    Change change = Change::Failed;
    std::thread writer([this, &change] {
        Contact c = contact("", "Waits", "Writer", {"0711 1"});
        change = store.putContact(c);
    });
    /* The other's transaction lasts a while, well within the wait. */
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_TRUE(other.commit());
    writer.join();
    EXPECT_EQ(change, Change::Added);
    EXPECT_EQ(store.contactCount(), 2);
}

/* ---- the file and its import ------------------------------------------- */

TEST_F(StoreTest, FilesThatAreNoWebconfdDatabaseAreRefused)
{
    auto sql = [](const std::string& file, const char* statement) {
        sqlite3* db = nullptr;
        ASSERT_EQ(sqlite3_open(file.c_str(), &db), SQLITE_OK);
        sqlite3_exec(db, statement, nullptr, nullptr, nullptr);
        sqlite3_close(db);
    };
    store.close();
    sql(path, "PRAGMA user_version = 2");   // one of ours, but newer
    sql(dir.path() + "/foreign.db", "CREATE TABLE other (x)");
    std::ofstream(dir.path() + "/junk.db", std::ios::binary) << std::string(4096, 'x');
    std::string error;
    EXPECT_FALSE(store.open(path, &error));
    EXPECT_NE(error.find("version 2"), std::string::npos) << error;
    EXPECT_FALSE(store.open(dir.path() + "/junk.db", &error));
    EXPECT_NE(error.find("not a database"), std::string::npos) << error;
    EXPECT_FALSE(store.open(dir.path() + "/foreign.db", &error));
    EXPECT_FALSE(store.open(dir.path() + "/no/such/dir/x.db", &error));
}

/* The log and the refusal name SQLite's real cause, not "not an error"
 * (its error state is cleared by the next statement). */
TEST_F(StoreTest, FailuresReportTheirRealCause)
{
    fill();
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open(path.c_str(), &db), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(db, "CREATE TRIGGER no BEFORE DELETE ON contacts BEGIN SELECT RAISE(ABORT, 'kept'); END",
                           nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_close(db);
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(store.deleteContact("1"), Change::Failed);
    const std::string log = ::testing::internal::GetCapturedStderr();
    EXPECT_NE(log.find("deleting a contact failed: kept"), std::string::npos) << log;

    store.close();
    std::string error;
    {
        std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
        file.seekp(100);
        file << std::string(600, '\xff');   // the page of the table list
    }
    EXPECT_FALSE(store.open(path, &error));
    EXPECT_NE(error.find("malformed"), std::string::npos) << error;
}

TEST_F(StoreTest, ImportSkipsCommentsAndRefusesBadLinesKeepingTheRest)
{
    std::istringstream in(
        "# my phonebook\r\n"
        "\n"
        "{\"contact\": {\"uid\": \"k1\", \"lastName\": \"K\xC3\xA4" "fer\", \"numbers\": [{\"number\": \"0711 1\"}]}}\r\n"
        "{\"contact\": {\"lastName\": \"Ohne Uid\"}}\n"
        "{\"event\": {\"kind\": 1, \"number\": \"0711 1\", \"timestamp\": 1700000000}}\n"
        "{\"folder\": {\"uid\": \"f\", \"name\": \"Alle\", \"members\": [\"k1\", 7, \"nobody\"]}}\n"
        "not json\n"
        "[1, 2]\n"
        "{\"contact\": {}, \"event\": {}}\n"
        "{\"phone\": {}}\n"
        "{\"contact\": \"k2\"}\n"
        "{\"folder\": {\"name\": \"no uid\"}}\n");
    const webconfd::ImportReport r = webconfd::importRecords(store, in, "test");
    EXPECT_FALSE(r.failed);
    EXPECT_EQ(r.contacts, 2);
    EXPECT_EQ(r.events, 1);
    EXPECT_EQ(r.folders, 1);
    EXPECT_EQ(r.rejected, 6);
    EXPECT_EQ(store.contactsById("k1", kAll).items.at(0).lastName, "K\xE4" "fer");
    EXPECT_EQ(store.contactsByNumber("+497111", kAll).total, 1);
    EXPECT_EQ(store.folders(kAll).items.at(0).count, 1);
}

}  // namespace
