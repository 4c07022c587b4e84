/*
 * Fuzz target: lines typed into the test console "kivo" of a started
 * module.
 *
 * Input: up to 32 lines separated by '\n', each given to KIVO_Interpreter
 * as the debug terminal gives it. The daemon answers the requests of every
 * other line at once (searches with two contacts and the end, changes with
 * an acknowledgement) so that "del" finds rows; the rest wait for their
 * timers. A word handed to a search must be a piece of the typed line that
 * fits the console's word buffer; at the end every timer fires and nothing
 * may be open or unreleased.
 */
#include <cstring>
#include <string>
#include <vector>

#include "harness.h"
#include "module_support.h"
#include "kivoglob.h"
#include "pbbackend.h"
#include "platform/recording.h"

using namespace ZEMBRA::Phonebook;

namespace {

/* The console reads a search word into char[32]. */
constexpr std::size_t kWordMax = 31;


/* Checks and, when `answer`, answers the requests sent since `from`. */
void handleRequests(std::size_t from, const std::string& line, bool answer)
{
    for (const rec::IpcSend& sent : rec::ipcSince(from)) {
        FUZZ_CHECK(sent.destination == "webconfd@Local");
        const Json::Value request = parseJson(sent.msg.string(0));
        FUZZ_CHECK(request.isObject());
        const unsigned int id = request["queryId"].asUInt();
        const bool change = sent.msg.primitive == KIVO_PRIM_CHANGE;
        if (!change) {
            const Json::Value& word = request["params"]["data"];
            FUZZ_CHECK(word.isString());
            const std::string latin1 = utf8ToLatin1(word.asString());
            FUZZ_CHECK(latin1.size() <= kWordMax);
            FUZZ_CHECK(line.find(latin1) != std::string::npos);
        }
        if (!answer)
            continue;
        if (change) {
            deliverReplyChecked(replyText(id, Acknowledge, 0, Json::Value(Json::arrayValue)));
        } else {
            Json::Value items(Json::arrayValue);
            items.append(contactItem("Wefer", "0711", "0711"));
            items.append(contactItem("\xD6hlenbach", "011122233344", "011122233344"));
            deliverReplyChecked(replyText(id, Contacts, 2, items));
            deliverReplyChecked(replyText(id, Contacts, 2, Json::Value(Json::arrayValue)));
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    moduleStart();
    const std::vector<std::string> lines = splitInput(data, size, '\n', 32);
    for (std::size_t i = 0; i < lines.size(); i++) {
        /* The terminal hands over a C string: what follows a NUL is unseen. */
        const std::string line = lines[i].c_str();
        const std::size_t sent = rec::recorder().ipc.size();
        KIVO_Interpreter(line.c_str());
        handleRequests(sent, line, i % 2 == 0);
    }
    rec::fireAllTimers();
    FUZZ_CHECK(pBackend.load()->openCount() == 0);
    FUZZ_CHECK(rec::pendingTimers() == 0);
    moduleStop();
    return 0;
}
