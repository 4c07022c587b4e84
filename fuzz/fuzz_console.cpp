/* Fuzz target: up to 32 lines typed into the console. Every other line's requests
 * are answered at once, so "del" finds rows; timers end the rest. A search word
 * sent must be a piece of the typed line that fits the console's char[32]. */
#include <sstream>

#include "harness.h"

using namespace ZEMBRA::Phonebook;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FUZZ_CHECK(startModule());
    Json::Value two;
    two.append(contactItem("Wefer", "0711", "0711"));
    two.append(contactItem("\xD6hlenbach", "011122233344", "011122233344"));
    std::istringstream in(std::string(reinterpret_cast<const char*>(data), size));
    std::string line;
    for (int n = 0; n < 32 && std::getline(in, line); n++) {
        line = line.c_str();   /* the terminal hands over a C string */
        const std::size_t from = rec::recorder().ipc.size();
        KIVO_Interpreter(line.c_str());
        for (const rec::IpcSend& sent : rec::ipcSince(from)) {
            const Json::Value request = parseJson(sent.msg.string(0)), &word = request["params"]["data"];
            const unsigned int id = request["queryId"].asUInt();
            const bool change = sent.msg.primitive == KIVO_PRIM_CHANGE;
            FUZZ_CHECK(sent.destination == "webconfd@Local" && request.isObject() && (change || word.isString()));
            const std::string latin1 = change ? "" : utf8ToLatin1(word.asString());
            FUZZ_CHECK(latin1.size() < 32 && line.find(latin1) != std::string::npos);
            if (n % 2 == 0)
                FUZZ_CHECK(change ? deliverReply(replyText(id, Acknowledge, 0))
                                  : deliverReply(replyText(id, Contacts, 2, two)) &&
                                        deliverReply(replyText(id, Contacts, 2)));
        }
    }
    rec::fireAllTimers();
    FUZZ_CHECK(pBackend.load()->openCount() == 0 && rec::pendingTimers() == 0);
    moduleStop();
    return 0;
}
