/* Test frame of the module's unit tests: the transcript and its cases. */
#include "kivo_fixture.h"

#include <algorithm>
#include <cstdio>
#include <sstream>

using namespace ZEMBRA::Phonebook;

std::atomic<int> FakeClient::alive{0};
std::atomic<int> FakeClient::made{0};

FakeClient::FakeClient(QueryMode mode, const Json::Value& value, bool bestMatch) : number(made++)
{
    parameters = QueryParameters{value, mode, 0, 100, ""};
    bestMatchOnly = bestMatch;
    alive++;
}

void KivoTest::SetUp()
{
    ASSERT_TRUE(startModule());
    FakeClient::made = 0;
    mark();
}

void KivoTest::TearDown()
{
    /* What a case leaves open is released with the module. */
    resetModule();
    EXPECT_EQ(FakeClient::alive, 0) << "a query client was never released";
    EXPECT_EQ(rec::liveRaws(), 0u) << "a received message was never released";
    EXPECT_EQ(rec::recorder().badReleases, 0);
    rec::reset();
}

namespace {

std::string hex(unsigned int v)
{
    char text[16];
    std::snprintf(text, sizeof text, "0x%08x", v);
    return text;
}

/* A message's fields. A string that is styled JSON shows compact in one
 * line, with ' for " (no test text holds either). */
std::string fields(const rec::Message& m)
{
    std::string out;
    for (const rec::Field& f : m.fields) {
        const Json::Value json = parseJson(f.str);
        std::string compact = Json::FastWriter().write(json);
        std::replace(compact.begin(), compact.end(), '"', '\'');
        compact.pop_back();
        out += f.isU32 ? " u32 " + std::to_string(f.u32)
                       : json.isObject() && json.toStyledString() == f.str ? " json " + compact : " '" + f.str + "'";
    }
    return out;
}

std::string replaceAll(std::string text, const std::string& what, const std::string& with)
{
    for (std::size_t at = 0; !what.empty() && (at = text.find(what, at)) != std::string::npos; at += with.size())
        text.replace(at, what.size(), with);
    return text;
}

}  // namespace

/* Terminal output as written, every other call as a "* " line. A message
 * shows its primitive, or primitive/flags/size when the Create that made it
 * came just before, and then its fields. Request texts inside traces read
 * "<request>", delivered reply texts "<reply>". */
std::string KivoTest::transcript() const
{
    const rec::Recorder& r = rec::recorder();
    std::size_t ipc = 0, log = 0, timer = 0, local = 0, task = 0, console = 0;
    std::string out, created;
    for (std::size_t i = 0; i < r.calls.size(); i++) {
        const std::string& call = r.calls[i];
        const std::string kind = call.substr(0, call.find(' '));
        const rec::Message* m = kind == "ipc" ? &r.ipc[ipc].msg : kind == "timer" ? &r.timers[timer].msg
                                : kind == "local" ? &r.local[local].msg : nullptr;
        std::string line, msg = m ? hex(m->primitive) : "";
        if (m && created.compare(0, 10, msg) == 0)
            msg = created;
        else if (!created.empty())
            line = "* create " + created + "\n";   /* made, never sent */
        created.clear();
        msg += m ? fields(*m) : "";
        if (kind == "create") {
            unsigned int primitive = 0, flags = 0;
            int size = 0;
            std::sscanf(call.c_str(), "create %x %u %d", &primitive, &flags, &size);
            created = hex(primitive) + "/" + std::to_string(flags) + "/" + std::to_string(size);
        } else if (kind == "ui") {
            std::string text = call.substr(3);
            for (const rec::IpcSend& s : r.ipc)
                text = replaceAll(text, s.msg.string(0), "<request>");
            if (std::find(replies.begin(), replies.end(), text) != replies.end())
                text = "<reply>\n";
            line += text.empty() || text.back() != '\n' ? text + "%\n" : text;
        } else if (kind == "ipc") {
            const rec::IpcSend& s = r.ipc[ipc++];
            line += "* ipc " + s.destination + " from " + (s.sourceNull ? "NULL" : "'" + s.source + "'") + " " + msg;
        } else if (kind == "log" || kind == "error") {
            const rec::LogRecord& l = r.logs[log++];
            line += "* " + kind + " " + l.file + ":" + l.function + ":" + std::to_string(l.line) + " " + l.text;
        } else if (kind == "timer") {
            const rec::TimerArm& t = r.timers[timer++];
            line += "* timer " + std::to_string(t.task) + " " + std::to_string(t.time) + " " + msg;
        } else if (kind == "local") {
            line += "* local " + std::to_string(r.local[local++].task) + " " + msg;
        } else if (kind == "tcreate" && task < r.tasks.size()) {
            const rec::Task& t = r.tasks[task++];
            line += "* tcreate " + t.name + " " + std::to_string(t.index) + " " + std::to_string(t.arg) +
                    (t.callback == &KIVO_Process ? " KIVO_Process" : " ?");
        } else if (kind == "register" && console < r.consoles.size()) {
            const rec::Console& c = r.consoles[console++];
            line += "* register " + c.name + " " + c.title +
                    (c.interpreter == &KIVO_Interpreter ? " KIVO_Interpreter" : " ?");
        } else {
            line += "* " + call;
        }
        if (i >= from)
            out += kind == "ui" || kind == "create" ? line : line + "\n";
    }
    return created.empty() ? out : out + "* create " + created + "\n";
}

void KivoTest::search(QueryMode mode, const Json::Value& value, bool bestMatch)
{
    backend().startQuery(boost::shared_ptr<FakeClient>(new FakeClient(mode, value, bestMatch)));
}

int KivoTest::query(QueryMode mode)
{
    return KIVO_ExpQuery(boost::shared_ptr<FakeClient>(new FakeClient(mode, Json::Value("W"))),
                         SearchBackends);
}

void KivoTest::reply(const std::string& text)
{
    replies.push_back(text);
    ASSERT_TRUE(deliverReply(text));
}

void KivoTest::reply(unsigned int queryId, int type, int total, const Json::Value& list)
{
    reply(replyText(queryId, type, total, list.isNull() ? Json::Value(Json::arrayValue) : list));
}

void KivoTest::expectTranscript(const std::vector<std::string>& lines) const
{
    std::string expected;
    for (const std::string& line : lines)
        expected += line + "\n";
    EXPECT_EQ(expected, transcript());   // shown as a line diff
}

Json::Value items(std::initializer_list<const char*> lastNames)
{
    Json::Value list(Json::arrayValue);
    for (const std::string spec : lastNames) {
        const std::size_t slash = spec.find('/');
        list.append(contactItem(spec.substr(0, slash), slash == std::string::npos ? "" : spec.substr(slash + 1)));
    }
    return list;
}
