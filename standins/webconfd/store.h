/*
 * The daemon's phonebook: one SQLite file with contacts and their numbers,
 * call-log events and folders. Records go in and come out as the phonebook
 * library's records with ISO-8859-1 texts; the file holds UTF-8, converted
 * here and nowhere else. Every statement is prepared with parameters.
 *
 * Not thread-safe: one Store is used by one thread at a time (the server
 * holds its lock around every call).
 */
#ifndef WEBCONFD_STORE_H
#define WEBCONFD_STORE_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "phonebook/records.h"

struct sqlite3;
struct sqlite3_stmt;

namespace webconfd {

/* Which slice of the matches a search wants, already checked: offset >= 0,
 * limit > 0. */
struct Page {
    int32_t offset = 0;
    int32_t limit = 100;
};

/* The matches of one search: `total` counts all of them, `items` holds the
 * page. `ok` is false when the database failed (logged). */
template <typename T>
struct Found {
    bool ok = true;
    int32_t total = 0;
    std::vector<T> items;
};

/* What a change did. */
enum class Change { Added, Replaced, Deleted, NotFound, Rejected, Failed };

/* A record whose JSON is longer than this is refused, so that any stored
 * record fits into one reply with room to spare. */
constexpr std::size_t kMaxRecordBytes = 16384;

class Store {
public:
    Store();
    ~Store();
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;

    /* Opens the file, creating it and its tables when missing or empty.
     * False, with the reason in *error, when the file cannot be used (not a
     * database, made by a newer webconfd, no permission). With
     * `mustBeComplete` an empty database (no tables: a first start that did
     * not finish) is refused instead of filled. */
    bool open(const std::string& path, std::string* error, bool mustBeComplete = false);
    void close();

    /* Contact searches; docs/webconfd.md says what each one matches. All
     * list their matches in phonebook order (last name, first name). */
    Found<ZEMBRA::Phonebook::Contact> contactsById(const std::string& uid, const Page& page);
    Found<ZEMBRA::Phonebook::Contact> contactsByNumber(const std::string& number, const Page& page);
    Found<ZEMBRA::Phonebook::Contact> contactsByName(const std::string& prefix, const Page& page);
    Found<ZEMBRA::Phonebook::Contact> contactsByKeypad(const std::string& digits, const Page& page);
    Found<ZEMBRA::Phonebook::Contact> contactAtPosition(int64_t position, const Page& page);

    /* Events with from <= timestamp <= to, newest first. */
    Found<ZEMBRA::Phonebook::Event> eventsBetween(int64_t from, int64_t to, const Page& page);
    /* All folders by name, each with its count of (existing) members. */
    Found<ZEMBRA::Phonebook::Folder> folders(const Page& page);

    /* Adds the contact, or replaces the one with its uid. An empty uid gets
     * a fresh one, written back into `contact`. An empty text3 is filled
     * with the keypad digits of the names. Rejected when too long. */
    Change putContact(ZEMBRA::Phonebook::Contact& contact);
    Change deleteContact(const std::string& uid);
    Change putEvent(ZEMBRA::Phonebook::Event& event);
    Change deleteEvent(const std::string& uid);
    /* Adds or replaces the folder with the given members (contact uids;
     * members that name no contact are kept but not counted). */
    Change putFolder(ZEMBRA::Phonebook::Folder& folder, const std::vector<std::string>& members);

    int64_t contactCount();

    /* Groups many changes into one transaction (imports); they nest. */
    bool begin();
    bool commit();
    void rollback();

private:
    class Stmt;
    struct Query;

    /* A statement prepared once and kept until close(); `busy` while a
     * Stmt uses it (a second user of the same text gets its own). */
    struct Prepared {
        sqlite3_stmt* stmt;
        bool busy;
    };

    sqlite3* db_ = nullptr;
    std::string lastError_;   // SQLite's message of the latest failure
    int depth_ = 0;   // of begin() calls not yet committed or rolled back
    std::map<std::string, Prepared> prepared_;

    bool exec(const char* sql);
    bool createSchema(std::string* error);
    bool migrate(std::string* error);
    std::string freshUid(const char* counter, const char* prefix, const char* table);
    bool uidTaken(const char* table, const std::string& uid);
    bool loadContact(int64_t id, ZEMBRA::Phonebook::Contact* out);
    void readContact(Stmt& row, int first, int64_t id, ZEMBRA::Phonebook::Contact* out);
    Found<ZEMBRA::Phonebook::Contact> findContacts(const Query& query, const Page& page);
    void noteError();
    void logError(const char* function, int line, const char* what);
};

}  // namespace webconfd

#endif
