/*
 * The console "svc": a command table, a query client that shows what the
 * module delivers, and the change commands. Searches run on the terminal's
 * thread up to KIVO_ExpQuery; deliveries and ends arrive on the module's
 * task, each line tagged with its search's number (#1, #2, ...), so several
 * searches at once stay apart.
 */
#include "service-console.h"

#include <dlfcn.h>

#include <atomic>
#include <chrono>
#include <string>

#include "phonebook/standin.h"
#include "platform/dtm.h"
#include "platform/log.h"
#include "service-text.h"

namespace host {

namespace {

using namespace ZEMBRA::Phonebook;

/* Searches open at once at the most: each holds an entry in the module's
 * query table until its end, so a script cannot grow that table without
 * bound. */
constexpr int kMaxOpen = 1000;

ModuleExports g_exports;
long g_timerMs = 5000;
bool g_showTimes = false;
std::atomic<unsigned> g_searches{0};
std::atomic<int> g_open{0};

void say(const std::string& line)
{
    UI_ExpWritef("%s\n", line.c_str());
}

/* A service's query client: every delivery and the end become a line. */
class ServiceClient : public AbstractQueryClient {
public:
    explicit ServiceClient(unsigned number)
        : tag_("#" + std::to_string(number) + " "), start_(std::chrono::steady_clock::now())
    {
    }

    void requestFinished() override
    {
        const long ms = static_cast<long>(
            std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start_).count());
        std::string line = tag_ + "end: ";
        if (!Library::finished(*this))
            line += "refused";   // the interface is switched off: no backend was asked
        else if (Library::result(*this) == ResultFound)
            line += "found, " + std::to_string(delivered_.load()) + " delivered";
        else
            line += "nothing found";
        // Only the module's timer ends a search this late: the daemon's end
        // would find the query gone.
        if (Library::finished(*this) && ms >= g_timerMs)
            line += ", by the timer";
        if (g_showTimes)
            line += " after " + std::to_string(ms) + " ms";
        g_open--;
        say(line);
    }
    void addContact(const Contact& contact, CacheInfo) override { deliver(contactLine(contact)); }
    void addContact(const Contact& contact, CacheInfo, const std::string& pattern, int count) override
    {
        deliver(contactLine(contact) + " pattern " + quoted(pattern) + " count " + std::to_string(count));
    }
    void addEvent(const Event& event, CacheInfo) override { deliver(eventLine(event)); }
    void addFolder(const Folder& folder, CacheInfo) override { deliver(folderLine(folder)); }

private:
    void deliver(const std::string& what)
    {
        delivered_++;
        say(tag_ + what);
    }

    const std::string tag_;
    const std::chrono::steady_clock::time_point start_;
    std::atomic<int> delivered_{0};
};

void search(QueryMode mode, const std::string& rest)
{
    SearchSettings settings;
    settings.mode = mode;
    std::string error;
    if (!parseSearch(rest, &settings, &error))
        return say("svc: " + error);
    if (g_open.load() >= kMaxOpen)
        return say("svc: " + std::to_string(kMaxOpen) + " searches are open; wait for one to end");
    const unsigned number = ++g_searches;
    boost::shared_ptr<ServiceClient> client(new ServiceClient(number));
    client->parameters.value = settings.value;
    client->parameters.mode = settings.mode;
    client->parameters.offset = settings.offset;
    client->parameters.size = settings.size;
    client->parameters.userId = settings.userId;
    client->bestMatchOnly = settings.bestMatchOnly;
    client->sourceAddress = settings.sourceAddress;
    client->requestPrimitive = settings.requestPrimitive;
    // Said before the call: a refused search ends inside it.
    say("#" + std::to_string(number) + " " + describeSearch(settings));
    g_open++;
    g_exports.query(client, SearchBackends);
}

/* The record of a change: its JSON form, or for a delete its uid alone. */
bool recordJson(const std::string& command, const std::string& text, bool uidAllowed, Json::Value* json)
{
    std::string error;
    if (text.empty() || (text[0] != '{' && !uidAllowed)) {
        say("svc: " + command + " wants the record's JSON on one line" + (uidAllowed ? " or its uid" : ""));
        return false;
    }
    if (text[0] != '{') {
        (*json)["uid"] = text;
        return true;
    }
    if (!parseJson(text, json, &error) || !json->isObject()) {
        say("svc: " + command + ": " + (error.empty() ? "not a JSON object" : error));
        return false;
    }
    return true;
}

void change(bool add, const std::string& rest)
{
    const std::size_t blank = rest.find(' ');
    const std::string kind = rest.substr(0, blank);
    std::string text = blank == std::string::npos ? "" : rest.substr(blank + 1);
    text.erase(0, text.find_first_not_of(' '));
    text.erase(text.find_last_not_of(' ') + 1);
    const std::string command = std::string(add ? "add " : "del ") + kind;
    if (kind != "contact" && kind != "event")
        return say(std::string("svc: ") + (add ? "add" : "del") + " wants \"contact\" or \"event\", then the record");
    Json::Value json;
    if (!recordJson(command, text, !add, &json))
        return;
    int code;
    std::string what;
    if (kind == "contact") {
        Contact contact = contactFromJson(json);
        code = (add ? g_exports.addContact : g_exports.delContact)(&contact);
        what = add ? contactLine(contact) : "contact uid " + quoted(contact.uid);
    } else {
        Event event = eventFromJson(json);
        code = (add ? g_exports.addEvent : g_exports.delEvent)(&event);
        what = add ? eventLine(event) : "event uid " + quoted(event.getUid());
    }
    say(std::string(add ? "add " : "del ") + (code == 0 ? "sent: " : "refused: ") + what);
}

int commandHelp(const std::string&);

int commandQuit(const std::string&)
{
    DTM_ExpReturn();
    return 0;
}

const struct Command {
    const char* word;
    int (*run)(const std::string& rest);
    const char* arguments;
    const char* help;
} kCommands[] = {
    {"id", [](const std::string& r) { return search(ID, r), 0; }, "[settings] uid", "search by uid (ID)"},
    {"number", [](const std::string& r) { return search(Number, r), 0; }, "[settings] number", "search by number (Number)"},
    {"name", [](const std::string& r) { return search(NameAlpha, r), 0; }, "[settings] text", "search by name (NameAlpha)"},
    {"vanity", [](const std::string& r) { return search(NameVanity, r), 0; }, "[settings] digits", "search by keypad digits (NameVanity)"},
    {"index", [](const std::string& r) { return search(Index, r), 0; }, "[settings] position", "search by position (Index)"},
    {"events", [](const std::string& r) { return search(EventRange, r), 0; }, "[settings] {\"from\":T,\"to\":T}", "call log in a time range (EventRange)"},
    {"folders", [](const std::string& r) { return search(FolderList, r), 0; }, "[settings]", "list folders (FolderList)"},
    {"add", [](const std::string& r) { return change(true, r), 0; }, "contact|event JSON", "add a record"},
    {"del", [](const std::string& r) { return change(false, r), 0; }, "contact|event UID|JSON", "delete a record"},
    {"help", commandHelp, "", "this list"},
    {"q", commandQuit, "", "leave the console"},
};

int commandHelp(const std::string&)
{
    for (const Command& c : kCommands) {
        char line[128];
        std::snprintf(line, sizeof line, "%-8s %-34s %s", c.word, c.arguments, c.help);
        say(line);
    }
    say("settings: offset=N size=N user=TEXT best=0|1 source=ADDRESS primitive=N");
    say("values: text as typed; {...}, [...], \"...\" and =JSON are JSON");
    return 0;
}

int interpreter(const char* line)
{
    const std::string text = line;
    const std::size_t blank = text.find(' ');
    const std::string word = text.substr(0, blank);
    if (word.empty())
        return 0;
    for (const Command& c : kCommands)
        if (word == c.word)
            return c.run(blank == std::string::npos ? "" : text.substr(blank + 1));
    say("svc: unknown command " + quoted(word) + " (help lists the commands)");
    return 0;
}

}  // namespace

bool lookUpExports(void* handle, ModuleExports* out, std::string* missing)
{
    // The module's functions keep C++ linkage: looked up by their mangled names.
    const struct {
        const char* symbol;
        const char* name;
        void** slot;
    } wanted[] = {
        {"_Z13KIVO_ExpQueryN5boost10shared_ptrIN6ZEMBRA9Phonebook19AbstractQueryClientEEENS2_7Manager10SearchModeE",
         "KIVO_ExpQuery", reinterpret_cast<void**>(&out->query)},
        {"_Z18KIVO_ExpAddContactPN6ZEMBRA9Phonebook7ContactE", "KIVO_ExpAddContact",
         reinterpret_cast<void**>(&out->addContact)},
        {"_Z18KIVO_ExpDelContactPN6ZEMBRA9Phonebook7ContactE", "KIVO_ExpDelContact",
         reinterpret_cast<void**>(&out->delContact)},
        {"_Z16KIVO_ExpAddEventPN6ZEMBRA9Phonebook5EventE", "KIVO_ExpAddEvent", reinterpret_cast<void**>(&out->addEvent)},
        {"_Z16KIVO_ExpDelEventPN6ZEMBRA9Phonebook5EventE", "KIVO_ExpDelEvent", reinterpret_cast<void**>(&out->delEvent)},
    };
    for (const auto& w : wanted) {
        *w.slot = dlsym(handle, w.symbol);
        if (*w.slot == nullptr) {
            *missing = w.name;
            return false;
        }
    }
    return true;
}

int registerServiceConsole(const ModuleExports& exports, long timerMs, bool showTimes)
{
    g_exports = exports;
    g_timerMs = timerMs;
    g_showTimes = showTimes;
    return DTM_ExpRegister("svc", "a phonebook service", interpreter);
}

}  // namespace host
