/*
 * kivo-test-peer: a scripted stand-in for the configuration daemon, for the
 * host's end-to-end tests. It answers at "webconfd@Local" and chooses its
 * behaviour from the request:
 *   a change request                  acknowledged
 *   a search for "W"                  two contacts, then the end
 *   a search for "silent"             no answer at all
 *   any other search                  the end at once (nothing found)
 * Every request text is appended, one per line, to the --log file.
 */
#include <signal.h>

#include <cstdio>
#include <fstream>
#include <memory>
#include <mutex>
#include <string>

#include <boost/make_shared.hpp>
#include <json/json.h>

#include "phonebook/latin1.h"
#include "phonebook/request.h"
#include "platform/log.h"
#include "platform/manmsg.h"
#include "platform/mantask.h"
#include "platform/runtime.h"

using namespace ZEMBRA::Phonebook;

namespace {

constexpr unsigned int kReply = 0x00830002;
int taskId;
std::string logPath;

void send(const std::string& to, const Response& r)
{
    const std::string text = Json::FastWriter().write(r.toJson());
    CManMessage m;
    if (m.Create(kReply, 0, static_cast<int>(text.size())) == 0 && m.addString(text) == 0)
        cManIO.SendIpc(m, "webconfd@Local", to.c_str());
    m.Delete();
}

Response reply(unsigned int id, int type, int total)
{
    Response r;
    r.queryId = id;
    r.type = type;
    r.total = total;
    return r;
}

bool parse(const std::string& text, Json::Value* out)
{
    std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    return reader->parse(text.data(), text.data() + text.size(), out, nullptr);
}

void answer(const std::string& from, const std::string& text)
{
    Json::Value json;
    const bool parsed = parse(text, &json);
    std::ofstream(logPath, std::ios::app) << Json::FastWriter().write(json);
    Request request(0, "");
    std::string error;
    if (!parsed || !Request::fromJson(json, request, &error)) {
        LOG_ExpError("peer", "answer", __LINE__, "bad request: %s", error.c_str());
        return;
    }
    const unsigned int id = request.queryId;
    if (const ContactParams* p = boost::get<ContactParams>(&request.params)) {
        if (p->type >= ContactParams::Add) {
            send(from, reply(id, Acknowledge, 0));
            return;
        }
        const std::string value = p->data.isString() ? p->data.asString() : std::string();
        if (value == "silent")
            return;
        if (value == "W") {
            Response r = reply(id, Contacts, 2);
            auto wefer = boost::make_shared<Contact>("", "17", "", "Tilmo", "Wefer", "H\xF6strand", boost::none);
            wefer->numbers.push_back(ContactNumber("", "011122233344", "", "", 1, 2, -1));
            wefer->numbers.push_back(ContactNumber("", "+49 711 123456", "", "", 3, 0, -1));
            auto stoebe = boost::make_shared<Contact>("", "18", "", "Elka", "St\xF6" "be", "L\xFCnbeck", boost::none);
            r.items = {wefer, stoebe};
            send(from, r);
        }
    }
    send(from, reply(id, boost::get<EventParams>(&request.params) ? Events : Contacts, 0));
}

void peerTask(int event, unsigned int, void* raw)
{
    if (event != MAN_EVENT_MESSAGE)
        return;
    CManMessage m;
    if (m.Assign(raw) == 0) {
        const std::string text = m.getString();
        if (!m.readFailed())
            answer(PLT_MessageSource(raw), text);
    }
    MAN_ExpPFree(raw);
}

}  // namespace

int main(int argc, char** argv)
{
    std::string dir;
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string arg = argv[i];
        if (arg == "--ipc-dir")
            dir = argv[i + 1];
        else if (arg == "--log")
            logPath = argv[i + 1];
    }
    if (dir.empty() || logPath.empty()) {
        std::fprintf(stderr, "usage: kivo-test-peer --ipc-dir DIR --log FILE\n");
        return 2;
    }
    sigset_t stop;
    sigemptyset(&stop);
    sigaddset(&stop, SIGTERM);
    sigaddset(&stop, SIGINT);
    pthread_sigmask(SIG_BLOCK, &stop, nullptr);   /* before any thread starts */

    if (PLT_SetIpcDir(dir) != 0 || MAN_ExpTCreate("webconfd", &taskId, 0, peerTask) != 0)
        return 1;
    int sig;
    sigwait(&stop, &sig);
    PLT_Shutdown();
    return 0;
}
