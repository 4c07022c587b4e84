/*
 * The SQLite side of the phonebook. A contact is one row of `contacts`
 * (the texts a search or the table needs, the keys of the search meanings
 * from match.h, and the remaining members as a JSON text) plus one row per
 * number in `numbers`. Search keys are computed when a record is written,
 * so a search is one indexed or scanned comparison in SQL.
 */
#include "store.h"

#include <sqlite3.h>

#include <cstring>
#include <string>

#include "jsontext.h"
#include "match.h"
#include "phonebook/latin1.h"
#include "phonebook/standin.h"
#include "platform/log.h"
#include "platform/standin.h"

using ZEMBRA::Phonebook::Contact;
using ZEMBRA::Phonebook::Library;
using ZEMBRA::Phonebook::makeEvent;
using ZEMBRA::Phonebook::makeFolder;
using ZEMBRA::Phonebook::contactFromJson;
using ZEMBRA::Phonebook::ContactNumber;
using ZEMBRA::Phonebook::Event;
using ZEMBRA::Phonebook::Folder;
using ZEMBRA::Phonebook::latin1ToUtf8;
using ZEMBRA::Phonebook::utf8ToLatin1;

namespace webconfd {

namespace {

const char kFile[] = "webconfd";

/* 2: the name keys and keypad digits are indexed; a file of version 1 is
 * brought to 2 in place when it is opened. */
constexpr int kSchemaVersion = 2;

/* The indexes that make a name or keypad search a range read. */
#define KEY_INDEXES                                                  \
    "CREATE INDEX IF NOT EXISTS contacts_last_key ON contacts(last_key);"       \
    "CREATE INDEX IF NOT EXISTS contacts_first_key ON contacts(first_key);"     \
    "CREATE INDEX IF NOT EXISTS contacts_last_digits ON contacts(last_digits);" \
    "CREATE INDEX IF NOT EXISTS contacts_first_digits ON contacts(first_digits);"

const char kSchema[] =
    "CREATE TABLE contacts ("
    "  id INTEGER PRIMARY KEY,"
    "  uid TEXT NOT NULL UNIQUE,"
    "  first_name TEXT NOT NULL,"
    "  last_name TEXT NOT NULL,"
    "  company TEXT NOT NULL,"
    "  vanity TEXT NOT NULL,"          // the record's text3
    "  text7 TEXT NOT NULL,"
    "  extra TEXT NOT NULL,"           // JSON of the members not stored above
    "  first_key TEXT NOT NULL,"       // nameKey()
    "  last_key TEXT NOT NULL,"
    "  first_digits TEXT NOT NULL,"    // keypad digits
    "  last_digits TEXT NOT NULL,"
    "  sort_key TEXT NOT NULL);"
    "CREATE INDEX contacts_order ON contacts(sort_key, uid);"
    KEY_INDEXES
    "CREATE TABLE numbers ("
    "  contact_id INTEGER NOT NULL REFERENCES contacts(id) ON DELETE CASCADE,"
    "  position INTEGER NOT NULL,"
    "  text1 TEXT NOT NULL,"
    "  number TEXT NOT NULL,"
    "  text3 TEXT NOT NULL,"
    "  text4 TEXT NOT NULL,"
    "  value1 INTEGER NOT NULL,"
    "  value2 INTEGER NOT NULL,"
    "  value3 INTEGER NOT NULL,"
    "  number_key TEXT NOT NULL,"      // numberKey()
    "  PRIMARY KEY (contact_id, position));"
    "CREATE INDEX numbers_key ON numbers(number_key);"
    "CREATE TABLE events ("
    "  id INTEGER PRIMARY KEY,"
    "  uid TEXT NOT NULL UNIQUE,"
    "  kind INTEGER NOT NULL,"
    "  number TEXT NOT NULL,"
    "  name TEXT NOT NULL,"
    "  timestamp INTEGER NOT NULL,"
    "  duration INTEGER NOT NULL);"
    "CREATE INDEX events_time ON events(timestamp);"
    "CREATE TABLE folders ("
    "  id INTEGER PRIMARY KEY,"
    "  uid TEXT NOT NULL UNIQUE,"
    "  name TEXT NOT NULL,"
    "  sort_key TEXT NOT NULL);"
    // Members name contacts by uid, so a folder may be imported before
    // its contacts; only members that exist are counted.
    "CREATE TABLE folder_members ("
    "  folder_uid TEXT NOT NULL,"
    "  contact_uid TEXT NOT NULL,"
    "  PRIMARY KEY (folder_uid, contact_uid));"
    "CREATE TABLE counters (name TEXT PRIMARY KEY, next INTEGER NOT NULL);";

/* Contact members that have columns of their own; the rest goes to
 * `extra`. `backend` is not stored: every record leaves as webconfd's. */
const char* const kContactColumns[] = {"backend", "uid",  "firstName", "lastName",
                                       "company", "text3", "text7",     "numbers"};

const char kBackend[] = "webconfd";

/* Contact searches differ in their condition only; ?1 is the key, ?2 the
 * least text above every text that begins with it. A prefix is a range of
 * an index, so a search reads its matches only. */
const char kWhereUid[] = "uid = ?1";
const char kWhereNumber[] = "id IN (SELECT contact_id FROM numbers WHERE number_key = ?1)";
const char kWhereName[] = "((last_key >= ?1 AND last_key < ?2) OR (first_key >= ?1 AND first_key < ?2))";
const char kWhereKeypad[] =
    "((last_digits >= ?1 AND last_digits < ?2) OR (first_digits >= ?1 AND first_digits < ?2))";

/* The least text above every one that begins with `prefix` (UTF-8, which
 * has no byte 0xFF), in the keys' binary order. */
std::string prefixEnd(std::string prefix)
{
    while (!prefix.empty() && static_cast<unsigned char>(prefix.back()) == 0xFF)
        prefix.pop_back();
    if (prefix.empty())
        return "\xFF";
    prefix.back() = static_cast<char>(static_cast<unsigned char>(prefix.back()) + 1);
    return prefix;
}

template <typename T>
std::size_t jsonBytes(const T& record)
{
    return compactJson(latin1ToUtf8(record.toJson())).size();
}

std::string contactSortKey(const Contact& c)
{
    return sortKey(c.lastName) + '\x01' + sortKey(c.firstName);
}

}  // namespace

/* A statement of the store, prepared on its first use and kept until the
 * store closes; each use binds afresh and leaves it reset, with no bindings,
 * so that no read stays open between calls. Texts are bound and read as
 * UTF-8; the Latin-1 helpers convert at this edge. */
class Store::Stmt {
public:
    Stmt(Store* store, const std::string& sql) : store_(store)
    {
        auto it = store->prepared_.find(sql);
        if (it != store->prepared_.end() && !it->second.busy) {
            prepared_ = &it->second;
            prepared_->busy = true;
            stmt_ = prepared_->stmt;
            return;
        }
        /* Kept when it is the first of its text; a second one in use at
         * the same time is finalised after its use. */
        const bool keep = it == store->prepared_.end();
        if (sqlite3_prepare_v3(store->db_, sql.c_str(), -1, keep ? SQLITE_PREPARE_PERSISTENT : 0, &stmt_,
                               nullptr) != SQLITE_OK) {
            store->noteError();
            LOG_ExpError(kFile, "Stmt", __LINE__, "cannot prepare statement: %s", store->lastError_.c_str());
            sqlite3_finalize(stmt_);
            stmt_ = nullptr;
            return;
        }
        if (keep && stmt_)
            prepared_ = &store->prepared_.emplace(sql, Prepared{stmt_, true}).first->second;
    }
    ~Stmt()
    {
        if (prepared_) {
            sqlite3_reset(stmt_);
            sqlite3_clear_bindings(stmt_);
            prepared_->busy = false;
        } else {
            sqlite3_finalize(stmt_);
        }
    }
    Stmt(const Stmt&) = delete;
    Stmt& operator=(const Stmt&) = delete;

    Stmt& text(int index, const std::string& utf8)
    {
        if (stmt_)
            sqlite3_bind_text(stmt_, index, utf8.data(), static_cast<int>(utf8.size()), SQLITE_TRANSIENT);
        return *this;
    }
    Stmt& latin1(int index, const std::string& latin1) { return text(index, latin1ToUtf8(latin1)); }
    Stmt& integer(int index, int64_t value)
    {
        if (stmt_)
            sqlite3_bind_int64(stmt_, index, static_cast<sqlite3_int64>(value));
        return *this;
    }

    /* SQLITE_ROW, SQLITE_DONE or an error code (noted for the log). */
    int step()
    {
        if (!stmt_)
            return SQLITE_ERROR;
        const int rc = sqlite3_step(stmt_);
        if (rc != SQLITE_ROW && rc != SQLITE_DONE)
            store_->noteError();
        return rc;
    }
    bool run() { return step() == SQLITE_DONE; }

    std::string columnText(int column)
    {
        const unsigned char* p = sqlite3_column_text(stmt_, column);
        const int n = sqlite3_column_bytes(stmt_, column);
        return p ? std::string(reinterpret_cast<const char*>(p), static_cast<std::size_t>(n)) : std::string();
    }
    std::string columnLatin1(int column) { return utf8ToLatin1(columnText(column)); }
    int64_t columnInt(int column) { return static_cast<int64_t>(sqlite3_column_int64(stmt_, column)); }
    int32_t columnInt32(int column) { return static_cast<int32_t>(sqlite3_column_int(stmt_, column)); }

    bool isNull(int column) { return sqlite3_column_type(stmt_, column) == SQLITE_NULL; }

private:
    Store* store_;
    sqlite3_stmt* stmt_ = nullptr;
    Prepared* prepared_ = nullptr;
};

struct Store::Query {
    const char* where;
    std::string key;    // UTF-8
    std::string end;    // of the key's range, for a prefix
};

Store::Store() = default;

Store::~Store()
{
    close();
}

bool Store::open(const std::string& path, std::string* error, bool mustBeComplete)
{
    close();
    if (sqlite3_open_v2(path.c_str(), &db_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr) != SQLITE_OK) {
        noteError();
        *error = db_ ? lastError_ : "out of memory";
        close();
        return false;
    }
    /* Two daemons may share one file; a writer waits for the other. */
    sqlite3_busy_timeout(db_, 2000);
    if (!exec("PRAGMA foreign_keys = ON")) {
        *error = lastError_;
        close();
        return false;
    }

    int64_t version = -1;
    int64_t tables = -1;
    {
        Stmt v(this, "PRAGMA user_version");
        if (v.step() == SQLITE_ROW)
            version = v.columnInt(0);
        Stmt t(this, "SELECT count(*) FROM sqlite_master");
        if (t.step() == SQLITE_ROW)
            tables = t.columnInt(0);
    }
    if (version < 0 || tables < 0) {
        *error = lastError_;   // "file is not a database", say
    } else if (version == 0 && tables == 0 && mustBeComplete) {
        *error = "not a complete phonebook: it is empty (a first start that did not finish?); remove it and the "
                 "next start makes a new one";
    } else if (version == 0 && tables == 0) {
        if (createSchema(error))
            return true;
    } else if (version == kSchemaVersion) {
        return true;
    } else if (version == 1) {
        if (migrate(error))
            return true;
    } else if (version == 0) {
        *error = "not a webconfd database (it has other tables)";
    } else {
        *error = "database version " + std::to_string(static_cast<long long>(version)) +
                 " is not the one this webconfd knows (" + std::to_string(kSchemaVersion) + ")";
    }
    close();
    return false;
}

/* Version 1 to 2: the indexes of the name keys and keypad digits, in one
 * transaction, so that the file is either of version 1 or of version 2. */
bool Store::migrate(std::string* error)
{
    const std::string sql = std::string("BEGIN IMMEDIATE;") + KEY_INDEXES + "PRAGMA user_version = " +
                            std::to_string(kSchemaVersion) + ";COMMIT;";
    if (exec(sql.c_str()))
        return true;
    *error = "cannot bring the database to version " + std::to_string(kSchemaVersion) + ": " + lastError_;
    exec("ROLLBACK");
    return false;
}

bool Store::createSchema(std::string* error)
{
    const std::string sql = std::string("BEGIN IMMEDIATE;") + kSchema + "PRAGMA user_version = " +
                            std::to_string(kSchemaVersion) + ";COMMIT;";
    if (exec(sql.c_str()))
        return true;
    *error = lastError_;
    exec("ROLLBACK");
    return false;
}

void Store::close()
{
    for (auto& entry : prepared_)
        sqlite3_finalize(entry.second.stmt);
    prepared_.clear();
    if (db_) {
        sqlite3_close_v2(db_);
        db_ = nullptr;
    }
    depth_ = 0;
}

bool Store::exec(const char* sql)
{
    if (!db_)
        return false;
    if (sqlite3_exec(db_, sql, nullptr, nullptr, nullptr) == SQLITE_OK)
        return true;
    noteError();
    return false;
}

/* Read at once: the next statement prepared or run clears SQLite's error
 * state, and the log would say "not an error". */
void Store::noteError()
{
    lastError_ = db_ ? sqlite3_errmsg(db_) : "no database open";
    const int sys = db_ ? sqlite3_system_errno(db_) : 0;
    if (sys != 0)
        lastError_ += std::string(" (") + std::strerror(sys) + ")";
}

void Store::logError(const char* function, int line, const char* what)
{
    LOG_ExpError(kFile, function, line, "%s: %s", what, lastError_.c_str());
}

/* The outermost transaction takes the write lock at once (BEGIN
 * IMMEDIATE), waiting up to the busy timeout for another writer: a
 * transaction that read first and then wants to write would instead fail at
 * once when another daemon writes meanwhile. Inner ones are savepoints, so a
 * change inside an import's transaction works the same as one on its own. */
bool Store::begin()
{
    if (!exec(depth_ == 0 ? "BEGIN IMMEDIATE" : "SAVEPOINT batch"))
        return false;
    depth_++;
    return true;
}

bool Store::commit()
{
    if (!exec(depth_ == 1 ? "COMMIT" : "RELEASE batch"))
        return false;
    depth_--;
    return true;
}

void Store::rollback()
{
    if (depth_ == 1) {
        exec("ROLLBACK");
    } else {
        exec("ROLLBACK TO batch");
        exec("RELEASE batch");
    }
    depth_--;
}

int64_t Store::contactCount()
{
    Stmt s(this, "SELECT count(*) FROM contacts");
    return s.step() == SQLITE_ROW ? s.columnInt(0) : 0;
}

/* ---- reading ---------------------------------------------------------- */

/* The contact columns of a row, as readContact() reads them. */
#define CONTACT_COLUMNS "uid, first_name, last_name, company, vanity, text7, extra"
/* And of its numbers, in the order of ContactNumber's constructor. */
#define NUMBER_COLUMNS "text1, number, text3, text4, value1, value2, value3"

/* The contact of `row`, whose CONTACT_COLUMNS start at column `first`;
 * without its numbers. */
void Store::readContact(Stmt& row, int first, int64_t id, Contact* out)
{
    Json::Value extra;
    std::string why;
    if (!parseJson(row.columnText(first + 6), &extra, &why) || !extra.isObject()) {
        LOG_ExpError(kFile, "loadContact", __LINE__, "contact %lld: unreadable extra members (%s)",
                     static_cast<long long>(id), why.c_str());
        extra = Json::Value(Json::objectValue);
    }
    *out = contactFromJson(ZEMBRA::Phonebook::utf8ToLatin1(extra));
    out->backend = kBackend;
    out->uid = row.columnLatin1(first + 0);
    out->firstName = row.columnLatin1(first + 1);
    out->lastName = row.columnLatin1(first + 2);
    out->company = row.columnLatin1(first + 3);
    out->text3 = row.columnLatin1(first + 4);
    out->text7 = row.columnLatin1(first + 5);
}

bool Store::loadContact(int64_t id, Contact* out)
{
    Stmt row(this, "SELECT " CONTACT_COLUMNS " FROM contacts WHERE id = ?1");
    row.integer(1, id);
    if (row.step() != SQLITE_ROW)
        return false;
    Contact c;
    readContact(row, 0, id, &c);

    Stmt nums(this, "SELECT " NUMBER_COLUMNS " FROM numbers WHERE contact_id = ?1 ORDER BY position");
    nums.integer(1, id);
    while (nums.step() == SQLITE_ROW) {
        c.numbers.push_back(ContactNumber{nums.columnLatin1(0), nums.columnLatin1(1), nums.columnLatin1(2),
                                          nums.columnLatin1(3), nums.columnInt32(4), nums.columnInt32(5),
                                          nums.columnInt32(6)});
    }
    *out = c;
    return true;
}

/* The page's contacts, their numbers and the count of all matches come
 * in one query, one scan of the contacts: one row per number (or one with
 * no number), contacts in phonebook order, each one's numbers in their
 * order, every row with the count. Only an empty page needs the count on
 * its own. */
Found<Contact> Store::findContacts(const Query& query, const Page& page)
{
    Found<Contact> found;
    Stmt rows(this, std::string("SELECT c.id, " CONTACT_COLUMNS ", c.total, n.position, " NUMBER_COLUMNS
                                " FROM (SELECT id, sort_key, " CONTACT_COLUMNS
                                ", count(*) OVER () AS total FROM contacts WHERE ") +
                        query.where +
                        " ORDER BY sort_key, uid LIMIT ?3 OFFSET ?4) c "
                        "LEFT JOIN numbers n ON n.contact_id = c.id ORDER BY c.sort_key, c.uid, n.position");
    rows.text(1, query.key).text(2, query.end).integer(3, page.limit).integer(4, page.offset);
    int64_t current = -1;
    int rc;
    while ((rc = rows.step()) == SQLITE_ROW) {
        const int64_t id = rows.columnInt(0);
        if (found.items.empty() || id != current) {
            if (found.items.empty()) {
                found.total = rows.columnInt32(8);
                const int64_t left = static_cast<int64_t>(found.total) - page.offset;
                found.items.reserve(static_cast<std::size_t>(left > 0 && left < page.limit ? left : page.limit));
            }
            found.items.emplace_back();
            readContact(rows, 1, id, &found.items.back());
            current = id;
        }
        if (!rows.isNull(9)) {
            found.items.back().numbers.push_back(ContactNumber{rows.columnLatin1(10), rows.columnLatin1(11),
                                                               rows.columnLatin1(12), rows.columnLatin1(13),
                                                               rows.columnInt32(14), rows.columnInt32(15),
                                                               rows.columnInt32(16)});
        }
    }
    if (rc != SQLITE_DONE) {
        logError("findContacts", __LINE__, "listing contacts failed");
        found.ok = false;
    }
    if (!found.items.empty())
        return found;

    Stmt count(this, std::string("SELECT count(*) FROM contacts WHERE ") + query.where);
    count.text(1, query.key).text(2, query.end);
    if (count.step() != SQLITE_ROW) {
        logError("findContacts", __LINE__, "counting contacts failed");
        found.ok = false;
        return found;
    }
    found.total = count.columnInt32(0);
    return found;
}

Found<Contact> Store::contactsById(const std::string& uid, const Page& page)
{
    return findContacts(Query{kWhereUid, latin1ToUtf8(uid), std::string()}, page);
}

Found<Contact> Store::contactsByNumber(const std::string& number, const Page& page)
{
    const std::string key = numberKey(number);
    if (key.empty())
        return Found<Contact>();   // no digits: nothing to compare
    return findContacts(Query{kWhereNumber, latin1ToUtf8(key), std::string()}, page);
}

Found<Contact> Store::contactsByName(const std::string& prefix, const Page& page)
{
    const std::string key = nameKey(prefix);
    const std::string utf8 = latin1ToUtf8(key);
    return findContacts(Query{kWhereName, utf8, prefixEnd(utf8)}, page);
}

Found<Contact> Store::contactsByKeypad(const std::string& digits, const Page& page)
{
    const std::string key = ZEMBRA::Phonebook::vanityKey(digits);
    if (key.empty())
        return Found<Contact>();
    return findContacts(Query{kWhereKeypad, key, prefixEnd(key)}, page);
}

Found<Contact> Store::contactAtPosition(int64_t position, const Page& page)
{
    Found<Contact> found;
    if (position < 0)
        return found;
    Stmt s(this, "SELECT id FROM contacts ORDER BY sort_key, uid LIMIT 1 OFFSET ?1");
    s.integer(1, position);
    const int rc = s.step();
    if (rc == SQLITE_ROW) {
        found.total = 1;
        Contact c;
        if (page.offset == 0 && loadContact(s.columnInt(0), &c))
            found.items.push_back(c);
    } else if (rc != SQLITE_DONE) {
        logError("contactAtPosition", __LINE__, "reading contacts failed");
        found.ok = false;
    }
    return found;
}

Found<Event> Store::eventsBetween(int64_t from, int64_t to, const Page& page)
{
    Found<Event> found;
    Stmt count(this, "SELECT count(*) FROM events WHERE timestamp BETWEEN ?1 AND ?2");
    count.integer(1, from).integer(2, to);
    Stmt list(this, "SELECT uid, kind, number, name, timestamp, duration FROM events "
                   "WHERE timestamp BETWEEN ?1 AND ?2 ORDER BY timestamp DESC, uid LIMIT ?3 OFFSET ?4");
    list.integer(1, from).integer(2, to).integer(3, page.limit).integer(4, page.offset);
    if (count.step() != SQLITE_ROW) {
        logError("eventsBetween", __LINE__, "counting events failed");
        found.ok = false;
        return found;
    }
    found.total = count.columnInt32(0);
    int rc;
    while ((rc = list.step()) == SQLITE_ROW) {
        found.items.push_back(makeEvent(kBackend, list.columnLatin1(0), list.columnInt32(1), list.columnLatin1(2),
                                        list.columnLatin1(3), list.columnInt(4), list.columnInt32(5)));
    }
    if (rc != SQLITE_DONE) {
        logError("eventsBetween", __LINE__, "listing events failed");
        found.ok = false;
    }
    return found;
}

Found<Folder> Store::folders(const Page& page)
{
    Found<Folder> found;
    Stmt count(this, "SELECT count(*) FROM folders");
    Stmt list(this, "SELECT f.uid, f.name, (SELECT count(*) FROM folder_members m JOIN contacts c "
                   "ON c.uid = m.contact_uid WHERE m.folder_uid = f.uid) "
                   "FROM folders f ORDER BY f.sort_key, f.uid LIMIT ?1 OFFSET ?2");
    list.integer(1, page.limit).integer(2, page.offset);
    if (count.step() != SQLITE_ROW) {
        logError("folders", __LINE__, "counting folders failed");
        found.ok = false;
        return found;
    }
    found.total = count.columnInt32(0);
    int rc;
    while ((rc = list.step()) == SQLITE_ROW)
        found.items.push_back(makeFolder(kBackend, list.columnLatin1(0), list.columnLatin1(1), list.columnInt32(2)));
    if (rc != SQLITE_DONE) {
        logError("folders", __LINE__, "listing folders failed");
        found.ok = false;
    }
    return found;
}

/* ---- writing ---------------------------------------------------------- */

bool Store::uidTaken(const char* sql, const std::string& uid)
{
    Stmt s(this, sql);
    s.latin1(1, uid);
    return s.step() == SQLITE_ROW;
}

/* The next number of `counter` that, with `prefix`, names no row yet
 * (imported records may have taken numbers the counter has not reached). */
std::string Store::freshUid(const char* counter, const char* prefix, const char* takenSql)
{
    int64_t next = 1;
    {
        Stmt s(this, "SELECT next FROM counters WHERE name = ?1");
        s.text(1, counter);
        if (s.step() == SQLITE_ROW)
            next = s.columnInt(0);
    }
    std::string uid;
    do {
        uid = prefix + std::to_string(static_cast<long long>(next++));
    } while (uidTaken(takenSql, uid));
    Stmt save(this, "INSERT INTO counters (name, next) VALUES (?1, ?2) "
                   "ON CONFLICT(name) DO UPDATE SET next = excluded.next");
    save.text(1, counter).integer(2, next);
    save.run();
    return uid;
}

Change Store::putContact(Contact& contact)
{
    if (contact.text3.empty())
        contact.calcVanity();
    if (jsonBytes(contact) > kMaxRecordBytes)
        return Change::Rejected;
    if (!begin()) {
        logError("putContact", __LINE__, "cannot start a transaction");
        return Change::Failed;
    }
    if (contact.uid.empty())
        contact.uid = freshUid("contact", "", "SELECT 1 FROM contacts WHERE uid = ?1");

    Json::Value extra = contact.toJson();
    for (const char* name : kContactColumns)
        extra.removeMember(name);

    int64_t id = -1;
    {
        Stmt s(this, "SELECT id FROM contacts WHERE uid = ?1");
        s.latin1(1, contact.uid);
        if (s.step() == SQLITE_ROW)
            id = s.columnInt(0);
    }
    const bool replacing = id >= 0;
    bool ok;
    {
        Stmt s(this, replacing ? "UPDATE contacts SET uid = ?1, first_name = ?2, last_name = ?3, company = ?4, "
                                "vanity = ?5, text7 = ?6, extra = ?7, first_key = ?8, last_key = ?9, "
                                "first_digits = ?10, last_digits = ?11, sort_key = ?12 WHERE id = ?13"
                              : "INSERT INTO contacts (uid, first_name, last_name, company, vanity, text7, extra, "
                                "first_key, last_key, first_digits, last_digits, sort_key) "
                                "VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10, ?11, ?12)");
        s.latin1(1, contact.uid)
            .latin1(2, contact.firstName)
            .latin1(3, contact.lastName)
            .latin1(4, contact.company)
            .latin1(5, contact.text3)
            .latin1(6, contact.text7)
            .text(7, compactJson(latin1ToUtf8(extra)))
            .latin1(8, nameKey(contact.firstName))
            .latin1(9, nameKey(contact.lastName))
            .text(10, ZEMBRA::Phonebook::vanityKey(contact.firstName))
            .text(11, ZEMBRA::Phonebook::vanityKey(contact.lastName))
            .latin1(12, contactSortKey(contact))
            .integer(13, id);
        ok = s.run();
    }
    if (ok && !replacing)
        id = static_cast<int64_t>(sqlite3_last_insert_rowid(db_));
    if (ok && replacing) {
        Stmt s(this, "DELETE FROM numbers WHERE contact_id = ?1");
        ok = s.integer(1, id).run();
    }
    for (std::size_t i = 0; ok && i < contact.numbers.size(); i++) {
        const ContactNumber& n = contact.numbers[i];
        Stmt s(this, "INSERT INTO numbers (contact_id, position, text1, number, text3, text4, value1, value2, "
                    "value3, number_key) VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10)");
        ok = s.integer(1, id)
                 .integer(2, static_cast<int64_t>(i))
                 .latin1(3, n.text1)
                 .latin1(4, n.number)
                 .latin1(5, n.text3)
                 .latin1(6, n.text4)
                 .integer(7, n.value1)
                 .integer(8, n.value2)
                 .integer(9, n.value3)
                 .latin1(10, numberKey(n.number))
                 .run();
    }
    if (!ok || !commit()) {
        logError("putContact", __LINE__, "storing a contact failed");
        rollback();
        return Change::Failed;
    }
    return replacing ? Change::Replaced : Change::Added;
}

Change Store::deleteContact(const std::string& uid)
{
    if (!begin()) {
        logError("deleteContact", __LINE__, "cannot start a transaction");
        return Change::Failed;
    }
    Stmt contact(this, "DELETE FROM contacts WHERE uid = ?1");
    bool ok = contact.latin1(1, uid).run();
    const int gone = sqlite3_changes(db_);
    Stmt members(this, "DELETE FROM folder_members WHERE contact_uid = ?1");
    ok = ok && members.latin1(1, uid).run();
    if (!ok || !commit()) {
        logError("deleteContact", __LINE__, "deleting a contact failed");
        rollback();
        return Change::Failed;
    }
    return gone > 0 ? Change::Deleted : Change::NotFound;
}

Change Store::putEvent(Event& event)
{
    if (jsonBytes(event) > kMaxRecordBytes)
        return Change::Rejected;
    if (!begin()) {
        logError("putEvent", __LINE__, "cannot start a transaction");
        return Change::Failed;
    }
    const char kTaken[] = "SELECT 1 FROM events WHERE uid = ?1";
    if (Library::data(event).uid.empty())
        Library::data(event).uid = freshUid("event", "e", kTaken);
    const bool replacing = uidTaken(kTaken, Library::data(event).uid);
    Stmt s(this, "INSERT INTO events (uid, kind, number, name, timestamp, duration) "
                "VALUES (?1, ?2, ?3, ?4, ?5, ?6) ON CONFLICT(uid) DO UPDATE SET kind = excluded.kind, "
                "number = excluded.number, name = excluded.name, timestamp = excluded.timestamp, "
                "duration = excluded.duration");
    s.latin1(1, Library::data(event).uid)
        .integer(2, Library::data(event).kind)
        .latin1(3, Library::data(event).number)
        .latin1(4, Library::data(event).name)
        .integer(5, Library::data(event).timestamp)
        .integer(6, Library::data(event).duration);
    if (!s.run() || !commit()) {
        logError("putEvent", __LINE__, "storing an event failed");
        rollback();
        return Change::Failed;
    }
    return replacing ? Change::Replaced : Change::Added;
}

Change Store::deleteEvent(const std::string& uid)
{
    Stmt s(this, "DELETE FROM events WHERE uid = ?1");
    if (!s.latin1(1, uid).run()) {
        logError("deleteEvent", __LINE__, "deleting an event failed");
        return Change::Failed;
    }
    return sqlite3_changes(db_) > 0 ? Change::Deleted : Change::NotFound;
}

Change Store::putFolder(Folder& folder, const std::vector<std::string>& members)
{
    if (jsonBytes(folder) > kMaxRecordBytes || Library::data(folder).uid.empty())
        return Change::Rejected;
    if (!begin()) {
        logError("putFolder", __LINE__, "cannot start a transaction");
        return Change::Failed;
    }
    const bool replacing = uidTaken("SELECT 1 FROM folders WHERE uid = ?1", Library::data(folder).uid);
    Stmt s(this, "INSERT INTO folders (uid, name, sort_key) VALUES (?1, ?2, ?3) "
                "ON CONFLICT(uid) DO UPDATE SET name = excluded.name, sort_key = excluded.sort_key");
    bool ok = s.latin1(1, Library::data(folder).uid).latin1(2, Library::data(folder).name).latin1(3, sortKey(Library::data(folder).name)).run();
    Stmt clear(this, "DELETE FROM folder_members WHERE folder_uid = ?1");
    ok = ok && clear.latin1(1, Library::data(folder).uid).run();
    for (const std::string& member : members) {
        Stmt add(this, "INSERT OR IGNORE INTO folder_members (folder_uid, contact_uid) VALUES (?1, ?2)");
        ok = ok && add.latin1(1, Library::data(folder).uid).latin1(2, member).run();
    }
    if (!ok || !commit()) {
        logError("putFolder", __LINE__, "storing a folder failed");
        rollback();
        return Change::Failed;
    }
    return replacing ? Change::Replaced : Change::Added;
}

}  // namespace webconfd
