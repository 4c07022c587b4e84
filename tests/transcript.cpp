/*
 * The module's unit cases as texts: tests/transcripts/<concern>/<Name>.t
 * holds the steps, one a line, then a line "----" and the transcript they
 * must leave (KivoTest::transcript()), line by line. This file runs a case
 * on the started module and shows a failure as a line diff; with
 * KIVO_UPDATE_TRANSCRIPTS=1 it writes the module's transcript into the
 * file instead, for a change that is meant. docs/testing.md lists the steps.
 */
#include <cstdlib>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <stdexcept>

#include "kivo_fixture.h"

using namespace ZEMBRA::Phonebook;

namespace {

struct Case { std::string concern, name; };

std::vector<Case> casesOf(const char* concern, std::initializer_list<const char*> names)
{
    std::vector<Case> cases;
    for (const char* name : names)
        cases.push_back({concern, name});
    return cases;
}

/* A word of a step: bare characters and quoted pieces up to a space outside
 * quotes. A quoted piece takes the escapes \\ \" \n \r \t \xHH, and *N after
 * it repeats it N times. */
struct Word {
    std::string text;
    bool quoted;   /* begins with a quote: never a keyword */
    bool is(const char* bare) const { return !quoted && text == bare; }
};

std::vector<Word> split(const std::string& line)
{
    std::vector<Word> words;
    for (std::size_t i = 0; i < line.size();) {
        if (line[i] == ' ') {
            i++;
            continue;
        }
        words.push_back({"", line[i] == '"'});
        while (i < line.size() && line[i] != ' ') {
            if (line[i] != '"') {
                words.back().text += line[i++];
                continue;
            }
            std::string piece;
            for (i++; i < line.size() && line[i] != '"'; i++) {
                const char c = line[i] == '\\' && i + 1 < line.size() ? line[++i] : '\0';
                if (c == 'x')
                    piece += static_cast<char>(std::stoi(line.substr(i + 1, 2), nullptr, 16)), i += 2;
                else
                    piece += c == 'n' ? '\n' : c == 'r' ? '\r' : c == 't' ? '\t' : c ? c : line[i];
            }
            if (i++ == line.size())
                throw std::invalid_argument("unterminated quote");
            std::size_t times = 1, digits = 0;
            if (i < line.size() && line[i] == '*')
                times = std::stoul(line.substr(i + 1), &digits), i += 1 + digits;
            while (times--)
                words.back().text += piece;
        }
    }
    return words;
}

long number(const Word& w) { return std::stol(w.text, nullptr, 0); }

/* Named values of the steps' words; a number stands for itself. */
long named(const Word& w, const std::map<std::string, long>& names)
{
    const auto it = names.find(w.text);
    return it != names.end() ? it->second : number(w);
}

const std::map<std::string, long> modes = {{"ID", ID}, {"Number", Number}, {"NameAlpha", NameAlpha},
    {"NameVanity", NameVanity}, {"Index", Index}, {"EventRange", EventRange}, {"FolderList", FolderList}};
const std::map<std::string, long> types = {{"Contacts", Contacts}, {"Events", Events}, {"Folders", Folders},
    {"Acknowledge", Acknowledge}, {"ConfigChanged", ConfigChanged}};
const std::map<std::string, long> prims = {{"KIVO_PRIM_TIMER", KIVO_PRIM_TIMER},
    {"KIVO_PRIM_RESULT", KIVO_PRIM_RESULT}, {"MAN_TAG_STRING", MAN_TAG_STRING}};
const std::map<std::string, long> events = {{"message", MAN_EVENT_MESSAGE}, {"control", MAN_EVENT_CONTROL},
    {"task", MAN_EVENT_TASK}};
const std::map<std::string, long> kinds = {{"missed", EventMissed}, {"incoming", EventIncoming},
    {"outgoing", EventOutgoing}};
const std::map<std::string, PltFault> faults = {{"Create", PltFault::Create}, {"Assign", PltFault::Assign},
    {"TaskCreate", PltFault::TaskCreate}, {"Register", PltFault::Register}};

/* A record whose conversion fails, as a library's may. */
struct ThrowingContact : Contact {
    Json::Value toJson() const override { throw std::runtime_error("toJson"); }
};

class TranscriptTest : public KivoTest, public ::testing::WithParamInterface<Case> {
protected:
    using Args = std::vector<Word>;
    /* One step on the module; what it returns is compared with "=> ...". */
    std::string step(const std::string& name, const Args& a, const std::string& rest);

    const Word& at(const Args& a, std::size_t i)
    {
        if (i >= a.size())
            throw std::invalid_argument("too few words");
        return a[i];
    }
    /* The key=value words of a record or a search; a key not in `known`
     * (names between spaces) is a mistake of the case. */
    static std::map<std::string, std::string> keys(const Args& a, const std::string& known)
    {
        std::map<std::string, std::string> out;
        for (const Word& w : a) {
            const std::size_t eq = w.quoted ? std::string::npos : w.text.find('=');
            const std::string key = eq == std::string::npos ? "" : w.text.substr(0, eq);
            if (!key.empty() && (" " + known + " ").find(" " + key + " ") == std::string::npos)
                throw std::invalid_argument("unknown key " + key);
            if (!key.empty())
                out[key] = w.text.substr(eq + 1);
        }
        return out;
    }
    template <class Record> Record* record(std::map<std::string, std::unique_ptr<Record>>& made, const Word& w)
    {
        if (w.is("NULL"))
            return nullptr;
        if (!made.count(w.text))
            throw std::invalid_argument("no record " + w.text);
        return made[w.text].get();
    }

    std::map<std::string, std::unique_ptr<Contact>> contacts;
    std::map<std::string, std::unique_ptr<Event>> eventsMade;
};

std::string TranscriptTest::step(const std::string& name, const Args& a, const std::string& rest)
{
    const auto result = [](int r) { return std::to_string(r); };
    if (name == "mark") {
        mark();
    } else if (name == "unload") {
        unload();
    } else if (name == "trace") {
        if (!at(a, 0).is("exp") && !a[0].is("info"))
            throw std::invalid_argument("a trace is exp or info");
        KIVODebugLevel[a[0].is("exp") ? KIVO_LEVEL_EXP : KIVO_LEVEL_INFO] = 1;
    } else if (name == "uiQueryId") {
        uiQueryId = static_cast<unsigned int>(std::stoul(at(a, 0).text, nullptr, 0));
    } else if (name == "fail") {
        rec::failNext(faults.at(at(a, 0).text), static_cast<int>(number(at(a, 1))),
                      a.size() > 2 ? static_cast<int>(number(a[2])) : 0);
    } else if (name == "search") {
        if (!a.empty() && a[0].is("NULL")) {
            backend().startQuery(boost::shared_ptr<AbstractQueryClient>());
            return "";
        }
        std::vector<Word> plain;
        for (const Word& w : a)
            if (w.quoted || (w.text != "best" && w.text.find('=') == std::string::npos))
                plain.push_back(w);
        const QueryMode mode = static_cast<QueryMode>(plain.empty() ? long{NameAlpha} : named(plain[0], modes));
        const Json::Value value = plain.size() < 2 ? Json::Value("W") : plain[1].is("null") ? Json::Value()
                                                                                          : Json::Value(plain[1].text);
        bool best = false;
        for (const Word& w : a)
            best = best || w.is("best");
        boost::shared_ptr<FakeClient> c(new FakeClient(mode, value, best));
        auto k = keys(a, "offset size user primitive source");
        c->parameters.offset = k.count("offset") ? std::stoi(k["offset"]) : c->parameters.offset;
        c->parameters.size = k.count("size") ? std::stoi(k["size"]) : c->parameters.size;
        c->parameters.userId = k.count("user") ? k["user"] : c->parameters.userId;
        if (k.count("primitive"))
            c->requestPrimitive = static_cast<unsigned int>(std::stoul(k["primitive"], nullptr, 0));
        c->sourceAddress = k.count("source") ? k["source"] : c->sourceAddress;
        backend().startQuery(c);
    } else if (name == "KIVO_ExpQuery") {
        return result(at(a, 0).is("NULL") ? KIVO_ExpQuery(boost::shared_ptr<AbstractQueryClient>(), SearchBackends)
                                          : query(static_cast<QueryMode>(named(a[0], modes))));
    } else if (name == "reply" && !a.empty() && a[0].quoted) {
        reply(a[0].text);
    } else if (name == "reply") {
        const std::size_t json = rest.find('[');
        Json::Value list(Json::arrayValue);
        if (json != std::string::npos)
            list = parseJson(rest.substr(json));
        for (std::size_t i = 3; json == std::string::npos && i < a.size(); i++)
            list.append(items({a[i].text.c_str()})[0]);
        reply(static_cast<unsigned int>(number(at(a, 0))), static_cast<int>(named(at(a, 1), types)),
              static_cast<int>(number(at(a, 2))), list);
    } else if (name == "expire") {
        expire(static_cast<unsigned int>(number(at(a, 0))));
    } else if (name == "Timeout") {
        backend().Timeout(static_cast<unsigned int>(number(at(a, 0))));
    } else if (name == "message") {
        rec::RawBuilder m(static_cast<uint32_t>(named(at(a, 0), prims)));
        for (std::size_t i = 1; i < a.size(); i += 2) {
            if (!a[i].is("u32") && !a[i].is("str"))
                throw std::invalid_argument("a field is u32 N or str TEXT");
            a[i].is("u32") ? void(m.u32(static_cast<uint32_t>(number(at(a, i + 1))))) : void(m.str(at(a, i + 1).text));
        }
        deliver(m);
    } else if (name == "raw") {
        std::vector<unsigned char> bytes;
        for (const Word& w : a)
            bytes.push_back(static_cast<unsigned char>(named(w, prims)));
        rec::deliver(KIVO_TASK_INDEX, MAN_EVENT_MESSAGE, 0, rec::makeRaw(bytes));
    } else if (name == "deliver") {
        if (a.size() > 2 && (!a[2].is("message") || a.size() != 4))
            throw std::invalid_argument("deliver EVENT PRIMITIVE [message PRIMITIVE]");
        void* raw = a.size() > 3 ? rec::RawBuilder(static_cast<uint32_t>(named(a[3], prims))).build() : nullptr;
        rec::deliver(KIVO_TASK_INDEX, static_cast<int>(named(at(a, 0), events)),
                     static_cast<unsigned int>(number(at(a, 1))), raw);
        const int released = raw ? rec::releaseCount(raw) : 0;
        if (raw && released == 0)
            MAN_ExpPFree(raw);
        return raw ? "released " + result(released) : "";
    } else if (name == "start") {
        const PbBackend* before = pBackend.load();
        EXPECT_TRUE(startEvent());
        const PbBackend* after = pBackend.load();
        return !after ? "none" : !before ? "started" : before == after ? "kept" : "replaced";
    } else if (name == "backend") {
        return pBackend.load() ? pBackend.load()->id() : "none";
    } else if (name == "manager") {
        return pManager.load() ? "made" : "none";
    } else if (name == "lookup") {
        PbBackend::QueryState q;
        return backend().lookup(static_cast<unsigned int>(number(at(a, 0))), &q) ? "count " + result(q.resultCount)
                                                                                : "none";
    } else if (name == "openIds") {
        std::string ids;
        for (unsigned int id : backend().openIds())
            ids += (ids.empty() ? "" : " ") + std::to_string(id);
        return ids;
    } else if (name == "client") {   /* the other addContact, straight to the client of an open query */
        PbBackend::QueryState q;
        if (!backend().lookup(static_cast<unsigned int>(number(at(a, 0))), &q) || !at(a, 1).is("addContact"))
            throw std::invalid_argument("no such query or call");
        q.client->addContact(Contact(), CacheRemote);
    } else if (name == "contact") {
        auto k = keys(a, "backend uid text3 first last company number");
        std::unique_ptr<Contact> c(a.size() > 1 && a[1].is("throws") ? new ThrowingContact
                                   : k.empty() ? new Contact
                                               : new Contact(k["backend"], k["uid"], k["text3"], k["first"],
                                                             k["last"], k["company"], boost::none));
        if (k.count("number")) {
            std::istringstream in(k.at("number"));
            ContactNumber n;
            char slash;
            std::getline(in, n.number, '/');
            if (!(in >> n.value1 >> slash >> n.value2 >> slash >> n.value3))
                throw std::invalid_argument("number=NUMBER/VALUE1/VALUE2/VALUE3");
            c->numbers.push_back(n);
        }
        contacts[at(a, 0).text] = std::move(c);
    } else if (name == "event") {
        auto k = keys(a, "backend uid kind number name time duration");
        const auto num = [&k](const char* key) { return k.count(key) ? named(Word{k[key], false}, kinds) : 0; };
        eventsMade[at(a, 0).text].reset(k.empty() ? new Event
            : new Event(makeEvent(k["backend"], k["uid"], static_cast<int32_t>(num("kind")), k["number"], k["name"],
                                  num("time"), static_cast<int32_t>(num("duration")))));
    } else if (name == "addContact" || name == "deleteContact") {
        Contact* c = record(contacts, at(a, 0));
        try {
            name == "addContact" ? backend().addContact(c) : backend().deleteContact(c);
        } catch (const std::runtime_error&) {
            return "throws";
        }
    } else if (name == "addEvent" || name == "deleteEvent") {
        Event* e = record(eventsMade, at(a, 0));
        name == "addEvent" ? backend().addEvent(e) : backend().deleteEvent(e);
    } else if (name == "KIVO_ExpAddContact" || name == "KIVO_ExpDelContact") {
        Contact* c = record(contacts, at(a, 0));
        return result(name == "KIVO_ExpAddContact" ? KIVO_ExpAddContact(c) : KIVO_ExpDelContact(c));
    } else if (name == "KIVO_ExpAddEvent" || name == "KIVO_ExpDelEvent") {
        Event* e = record(eventsMade, at(a, 0));
        return result(name == "KIVO_ExpAddEvent" ? KIVO_ExpAddEvent(e) : KIVO_ExpDelEvent(e));
    } else if (name == "type") {
        const std::vector<Word> line = split(rest);
        return result(KIVO_Interpreter(rest == "NULL" ? nullptr
                                       : !line.empty() && line[0].quoted ? line[0].text.c_str() : rest.c_str()));
    } else if (name == "KIVO_DebugSet") {
        KIVO_DebugSet(at(a, 0).is("NULL") ? nullptr : a[0].text.c_str(), static_cast<int>(number(at(a, 1))));
    } else if (name == "KIVO_ExpInit") {
        return result(KIVO_ExpInit());
    } else if (name == "KIVO_InitDb") {
        KIVO_InitDb();
    } else if (name == "KIVO_QueryTimer") {
        return result(KIVO_QueryTimer(static_cast<unsigned int>(number(at(a, 0)))));
    } else if (name == "KIVO_SetIfcEnable") {
        return result(KIVO_SetIfcEnable(static_cast<int>(number(at(a, 0)))));
    } else if (name == "KIVO_GetIfcEnable") {
        return result(KIVO_GetIfcEnable());
    } else if (name == "KIVO_TFDelete") {
        return result(KIVO_TFDelete(static_cast<int>(number(at(a, 0)))));
    } else if (name == "KIVO_DebugDump") {
        KIVO_DebugDump();
    } else if (name == "KIVO_DumpDb") {
        KIVO_DumpDb();
    } else {
        throw std::invalid_argument("unknown step");
    }
    return "";
}

/* No line of a case is wider than 120 columns: a longer one is kept as
 * pieces of 119 characters, each but the last ending in a backslash. */
constexpr std::size_t kWidth = 120;

std::string unwrap(const std::string& text)
{
    std::string out;
    for (std::size_t at = 0, end; at < text.size(); at = end + 1) {
        end = std::min(text.find('\n', at), text.size());
        const bool piece = end - at == kWidth && text[end - 1] == '\\';
        out += text.substr(at, end - at - piece) + (piece || end == text.size() ? "" : "\n");
    }
    return out;
}

std::string wrap(const std::string& text)
{
    std::string out;
    for (std::size_t at = 0, end; at < text.size(); at = end + 1) {
        end = std::min(text.find('\n', at), text.size());
        std::size_t from = at;
        for (; end - from >= kWidth; from += kWidth - 1)
            out += text.substr(from, kWidth - 1) + "\\\n";
        out += text.substr(from, end - from) + (end < text.size() ? "\n" : "");
    }
    return out;
}

/* With it set, a case writes what the module did into its file: the
 * transcript and the results after "=>". */
bool updating()
{
    const char* update = std::getenv("KIVO_UPDATE_TRANSCRIPTS");
    return update && *update && std::string(update) != "0";
}

TEST_P(TranscriptTest, Run)
{
    const std::string path = std::string(KIVO_TRANSCRIPTS) + GetParam().concern + "/" + GetParam().name + ".t";
    std::ifstream file(path, std::ios::binary);
    ASSERT_TRUE(file) << "cannot read " << path;
    std::istringstream in(unwrap(std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>())));
    std::string line, steps, expected;
    int lineNo = 0;
    bool changed = false;
    while (std::getline(in, line) && line != "----") {
        lineNo++;
        const std::size_t arrow = line.rfind(" => ");
        std::string text = line.substr(0, arrow), want = arrow == std::string::npos ? "" : line.substr(arrow + 4);
        text.erase(text.find_last_not_of(' ') + 1);
        const std::string name = text.substr(0, text.find(' '));
        const std::string rest = name.size() < text.size() ? text.substr(name.size() + 1) : "";
        std::string got;
        try {
            got = text.empty() || text[0] == '#' ? want : step(name, name == "type" ? Args() : split(rest), rest);
        } catch (const std::exception& e) {
            ADD_FAILURE_AT(path.c_str(), lineNo) << "cannot run \"" << line << "\": " << e.what();
            return;
        }
        if (name == "type" && arrow == std::string::npos)
            want = "0";   /* a console line is to succeed unless the case says otherwise */
        const bool checked = arrow != std::string::npos || name == "type";
        if (checked && got != want && updating())
            line = text + (name == "type" && got == "0" ? "" : " => " + got), changed = true;
        else if (checked && got != want)
            ADD_FAILURE_AT(path.c_str(), lineNo) << "\"" << line << "\" gave \"" << got << "\"";
        steps += line + "\n";
        if (HasFatalFailure())
            return;
    }
    ASSERT_TRUE(in) << path << " has no line \"----\" before the transcript";
    expected.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    const std::string actual = transcript();
    if (updating() && (changed || actual != expected)) {
        std::ofstream(path, std::ios::binary | std::ios::trunc) << wrap(steps + "----\n" + actual);
        std::printf("updated %s\n", path.c_str());
    } else {
        /* GoogleTest shows the difference of two texts as a line diff. */
        EXPECT_EQ(expected, actual) << path << ": the transcript differs "
                                    << "(KIVO_UPDATE_TRANSCRIPTS=1 writes the module's transcript there)";
    }
}

void PrintTo(const Case& c, std::ostream* out) { *out << c.concern << "/" << c.name << ".t"; }

std::string caseName(const ::testing::TestParamInfo<Case>& info) { return info.param.name; }

#define TRANSCRIPTS(suite, concern, ...) \
    INSTANTIATE_TEST_SUITE_P(suite, TranscriptTest, ::testing::ValuesIn(casesOf(concern, {__VA_ARGS__})), caseName);
#include "transcript_cases.inc"

}  // namespace
