/*
 * webconfd's SQLite phonebook on a database in a private directory: each
 * search meaning, paging and totals, changes, ISO-8859-1 texts byte for
 * byte, files it must refuse, and the import of JSON lines.
 */
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <cstdint>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "import.h"
#include "process_util.h"
#include "store.h"

using ZEMBRA::Phonebook::Contact;
using ZEMBRA::Phonebook::ContactNumber;
using ZEMBRA::Phonebook::Event;
using ZEMBRA::Phonebook::Folder;
using webconfd::Change;
using webconfd::Found;
using webconfd::Page;
using webconfd::Store;

namespace {

Page page(int32_t offset, int32_t limit)
{
    Page p;
    p.offset = offset;
    p.limit = limit;
    return p;
}

const Page kAll = page(0, 1000);

Contact contact(const std::string& uid, const std::string& first, const std::string& last,
                const std::vector<std::string>& numbers = {})
{
    Contact c("", uid, "", first, last, "", boost::optional<std::string>());
    for (const std::string& n : numbers)
        c.numbers.emplace_back("", n, "", "", 1, 2, -1);
    return c;
}

std::vector<std::string> uids(const Found<Contact>& found)
{
    std::vector<std::string> out;
    for (const Contact& c : found.items)
        out.push_back(c.uid);
    return out;
}

class StoreTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        path = dir.path() + "/pb.db";
        std::string error;
        ASSERT_TRUE(store.open(path, &error)) << error;
    }

    /* A small phonebook: names with umlauts in both cases, numbers written
     * in several ways. */
    void fill()
    {
        std::vector<Contact> all = {
            contact("1", "Anna", "Weber", {"+49 (0)69 1234 5678", "0151 23456789"}),
            contact("2", "S\xF6ren", "W\xF6hrle", {"07644 1234"}),   // Sören Wöhrle
            contact("3", "Wiebke", "Z\xF6llner", {"0561 7766554"}),
            contact("4", "Falmer", "\xD6hlenbach", {"+43 662 87 65 43"}),   // Öhlenbach
            contact("11", "Ingrid", "Nu\xDF" "baum", {"0761/445566"}),
            contact("12", "J\xF6rg", "Fischer", {"0711 98765-0", "0711 98765-12"}),
        };
        for (Contact& c : all)
            ASSERT_EQ(store.putContact(c), Change::Added) << c.uid;
    }

    TempDir dir;
    std::string path;
    Store store;
};

/* ---- searches ---------------------------------------------------------- */

TEST_F(StoreTest, IdAndNumberMatchWholeKeysOnly)
{
    fill();
    EXPECT_EQ(uids(store.contactsById("1", kAll)), std::vector<std::string>{"1"});
    EXPECT_EQ(store.contactsById("", kAll).total, 0);
    /* Any writing of any of the contact's numbers. */
    EXPECT_EQ(uids(store.contactsByNumber("06912345678", kAll)), std::vector<std::string>{"1"});
    EXPECT_EQ(uids(store.contactsByNumber("+4915123456789", kAll)), std::vector<std::string>{"1"});
    EXPECT_EQ(uids(store.contactsByNumber("0049 711 98765 12", kAll)), std::vector<std::string>{"12"});
    EXPECT_EQ(uids(store.contactsByNumber("004366287 6543", kAll)), std::vector<std::string>{"4"});
    /* Neither a part of a number nor the bare trunk prefix. */
    EXPECT_EQ(store.contactsByNumber("98765", kAll).total, 0);
    EXPECT_EQ(store.contactsByNumber("0", kAll).total, 0);
    EXPECT_EQ(store.contactsByNumber("", kAll).total, 0);
}

TEST_F(StoreTest, NameIsACaseInsensitivePrefixOfLastOrFirstName)
{
    fill();
    EXPECT_EQ(uids(store.contactsByName("W", kAll)), (std::vector<std::string>{"1", "2", "3"}));   // Wiebke too
    EXPECT_EQ(uids(store.contactsByName("w\xD6H", kAll)), std::vector<std::string>{"2"});        // "wÖH"
    EXPECT_EQ(uids(store.contactsByName("\xF6hlenbach", kAll)), std::vector<std::string>{"4"});  // "öhlenbach"
    EXPECT_EQ(uids(store.contactsByName("j\xD6rg", kAll)), std::vector<std::string>{"12"});
    EXPECT_EQ(store.contactsByName("eber", kAll).total, 0) << "inside a name is no prefix";
    /* Empty: everything, in phonebook order (Öhlenbach after Nußbaum,
     * Wöhrle after Weber). */
    EXPECT_EQ(uids(store.contactsByName("", kAll)), (std::vector<std::string>{"12", "11", "4", "1", "2", "3"}));
}

TEST_F(StoreTest, KeypadDigitsMatchTheStartOfLastOrFirstName)
{
    fill();
    EXPECT_EQ(uids(store.contactsByKeypad("9647", kAll)), std::vector<std::string>{"2"});    // Wöhrle: ö on 6
    EXPECT_EQ(uids(store.contactsByKeypad("645", kAll)), std::vector<std::string>{"4"});     // Öhlenbach
    EXPECT_EQ(uids(store.contactsByKeypad("5674", kAll)), std::vector<std::string>{"12"});   // Jörg
    EXPECT_EQ(uids(store.contactsByKeypad("687", kAll)), std::vector<std::string>{"11"});    // Nußbaum: ß on 7
    EXPECT_EQ(uids(store.contactsByKeypad("W\xF6h", kAll)), std::vector<std::string>{"2"}) << "letters count as keys";
    EXPECT_EQ(store.contactsByKeypad("-", kAll).total, 0);
}

TEST_F(StoreTest, IndexIsThePositionInPhonebookOrder)
{
    fill();
    EXPECT_EQ(uids(store.contactAtPosition(0, kAll)), std::vector<std::string>{"12"});
    EXPECT_EQ(uids(store.contactAtPosition(5, kAll)), std::vector<std::string>{"3"});
    EXPECT_EQ(store.contactAtPosition(6, kAll).total, 0);
    EXPECT_EQ(store.contactAtPosition(-1, kAll).total, 0);
}

TEST_F(StoreTest, PagingSlicesTheMatchesAndTotalCountsThemAll)
{
    fill();
    const std::vector<std::string> all = uids(store.contactsByName("", kAll));
    std::vector<std::string> joined;
    for (int32_t offset = 0; offset < 6; offset += 4) {
        const Found<Contact> part = store.contactsByName("", page(offset, 4));
        EXPECT_EQ(part.total, 6);
        for (const std::string& uid : uids(part))
            joined.push_back(uid);
    }
    EXPECT_EQ(joined, all);
    const Found<Contact> beyond = store.contactsByName("", page(6, 4));
    EXPECT_EQ(beyond.total, 6);
    EXPECT_TRUE(beyond.items.empty());
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
    store.close();
    std::string error;
    ASSERT_TRUE(store.open(path, &error)) << error;
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
    EXPECT_EQ(store.deleteContact("1"), Change::Deleted);
    EXPECT_EQ(store.deleteContact("1"), Change::NotFound);
    EXPECT_EQ(store.contactsById("1", kAll).total, 0);
    EXPECT_EQ(store.contactsByNumber("0151 23456789", kAll).total, 0);
    EXPECT_EQ(store.folders(kAll).items.at(0).count, 1);
    /* A new contact with the old uid is no member. */
    Contact back = contact("1", "Anna", "Weber");
    store.putContact(back);
    EXPECT_EQ(store.folders(kAll).items.at(0).count, 1);
}

TEST_F(StoreTest, EveryLatin1ByteAndEveryMemberComesBackUnchanged)
{
    std::string bytes;
    for (int c = 1; c < 256; c++)
        bytes += static_cast<char>(c);
    Contact c("ignored", "u\xE9-1", "t3\xFF", "Fr\xE9" "d\xE9ric", "M\xFCller " + bytes, "H\xF6strand " + bytes,
              boost::optional<std::string>("opt\xDF"));
    c.text7 = "seven\xB0";
    c.extraText1 = bytes;
    c.extraText7 = "\xA9 7";
    c.numbers.emplace_back("gesch\xE4" "ftlich", "+49 711 1", "\xB5", "\xBD", -1, 0x7FFFFFFF, -2147483647 - 1);
    ZEMBRA::Phonebook::ContactEntry entry;
    entry.text1 = "\xE6";
    entry.value = 42;
    c.entries.push_back(entry);
    ASSERT_EQ(store.putContact(c), Change::Added);

    store.close();
    std::string error;
    ASSERT_TRUE(store.open(path, &error)) << error;
    const Found<Contact> found = store.contactsById("u\xE9-1", kAll);
    ASSERT_EQ(found.items.size(), 1u);
    Contact expected = c;
    expected.backend = "webconfd";
    EXPECT_TRUE(found.items[0] == expected);
    EXPECT_EQ(found.items[0].company, c.company);
}

TEST_F(StoreTest, RecordsLongerThanTheLimitAreRefused)
{
    Contact big = contact("", "Big", "Contact");
    big.extraText1.assign(webconfd::kMaxRecordBytes, 'x');
    EXPECT_EQ(store.putContact(big), Change::Rejected);
    Event longEvent("", "", 0, "0711", std::string(webconfd::kMaxRecordBytes, 'y'), 1, 1);
    EXPECT_EQ(store.putEvent(longEvent), Change::Rejected);
    EXPECT_EQ(store.contactCount(), 0);
    EXPECT_EQ(store.eventsBetween(INT64_MIN, INT64_MAX, kAll).total, 0);
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
    const Found<Event> all = store.eventsBetween(INT64_MIN, INT64_MAX, page(1, 2));
    EXPECT_EQ(all.total, 4);
    EXPECT_EQ(all.items.at(0).timestamp, 300);

    EXPECT_EQ(store.deleteEvent("e4"), Change::Deleted);
    EXPECT_EQ(store.deleteEvent("e4"), Change::NotFound);
    Event same("", "e1", 2, "030", "", 999, 0);
    EXPECT_EQ(store.putEvent(same), Change::Replaced);
    EXPECT_EQ(store.eventsBetween(INT64_MIN, INT64_MAX, kAll).total, 3);
}

TEST_F(StoreTest, FoldersAreListedByNameAndCountTheirExistingMembers)
{
    fill();
    Folder work("", "f2", "Gesch\xE4" "ftlich", 99);
    Folder family("", "f1", "Familie", 0);
    ASSERT_EQ(store.putFolder(work, {"1", "12", "404"}), Change::Added);
    ASSERT_EQ(store.putFolder(family, {"3"}), Change::Added);
    Folder noUid("", "", "x", 0);
    EXPECT_EQ(store.putFolder(noUid, {}), Change::Rejected);

    const Found<Folder> found = store.folders(kAll);
    ASSERT_EQ(found.total, 2);
    EXPECT_EQ(found.items[0].name, "Familie");
    EXPECT_EQ(found.items[1].name, "Gesch\xE4" "ftlich");
    EXPECT_EQ(found.items[1].count, 2) << "404 names no contact";
}

/* ---- the file ---------------------------------------------------------- */

TEST(StoreFile, FilesThatAreNoWebconfdDatabaseAreRefused)
{
    TempDir dir;
    Store store;
    std::string error;

    const std::string junk = dir.path() + "/junk.db";
    {
        std::ofstream f(junk, std::ios::binary);
        f << std::string(4096, 'x');
    }
    EXPECT_FALSE(store.open(junk, &error));
    EXPECT_NE(error.find("not a database"), std::string::npos) << error;

    const std::string foreign = dir.path() + "/foreign.db";
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open(foreign.c_str(), &db), SQLITE_OK);
    sqlite3_exec(db, "CREATE TABLE other (x)", nullptr, nullptr, nullptr);
    sqlite3_close(db);
    EXPECT_FALSE(store.open(foreign, &error));

    const std::string newer = dir.path() + "/newer.db";
    ASSERT_TRUE(store.open(newer, &error)) << error;
    store.close();
    ASSERT_EQ(sqlite3_open(newer.c_str(), &db), SQLITE_OK);
    sqlite3_exec(db, "PRAGMA user_version = 2", nullptr, nullptr, nullptr);
    sqlite3_close(db);
    EXPECT_FALSE(store.open(newer, &error));
    EXPECT_NE(error.find("version 2"), std::string::npos) << error;

    EXPECT_FALSE(store.open(dir.path() + "/no/such/dir/x.db", &error));
}

/* ---- import ------------------------------------------------------------ */

TEST_F(StoreTest, SampleHoldsContactsCallsAndFolders)
{
    const webconfd::ImportReport r = webconfd::importSample(store);
    EXPECT_FALSE(r.failed);
    EXPECT_EQ(r.rejected, 0);
    EXPECT_GE(r.contacts, 30);
    EXPECT_GE(r.events, 10);
    EXPECT_GE(r.folders, 3);
    /* Umlauts and other ISO-8859-1 letters arrive as single bytes. */
    const Found<Contact> w = store.contactsByName("w\xF6", kAll);
    ASSERT_EQ(w.items.size(), 1u);
    EXPECT_EQ(w.items[0].lastName, "W\xF6hrle");
    EXPECT_GE(w.items[0].numbers.size(), 2u);
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
