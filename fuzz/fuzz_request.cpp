/*
 * Fuzz target: request texts given to the daemon's request handling
 * (webconfd::Server::handle) over an in-memory store holding the sample
 * phonebook.
 *
 * Input: one option byte (bits 0-2: records per reply less one, bit 3: a
 * byte budget of 1 KiB per reply), then the request text from
 * "kivo@Local". Another client, "other@Local", is known beforehand so that
 * changes send it their notice. Every input runs inside a savepoint that is
 * rolled back, so inputs do not see each other's changes.
 *
 * What comes out must be what the module can use: every request with a
 * usable id is answered, replies go to the request's sender with its
 * queryId, fit one message, hold at most the records per reply, and the
 * last one ends the query (an acknowledgement or an empty list of the
 * search's type); notices go to the other client only.
 */
#include <memory>
#include <string>
#include <vector>

#include <json/json.h>

#include "check.h"
#include "phonebook/request.h"
#include "platform/manmsg.h"
#include "platform/runtime.h"
#include "platform/standin.h"
#include "import.h"
#include "server.h"
#include "store.h"

using ZEMBRA::Phonebook::Response;

namespace {

const char kSource[] = "kivo@Local";
const char kOther[] = "other@Local";

void quietLog(int, const char*, const char*, int, const char*) {}

webconfd::Store& store()
{
    static webconfd::Store* s = [] {
        PLT_SetLogSink(quietLog);
        auto* st = new webconfd::Store();
        std::string error;
        FUZZ_CHECK(st->open(":memory:", &error));
        FUZZ_CHECK(!webconfd::importSample(*st).failed);
        return st;
    }();
    return *s;
}

/* Whether the request is one the daemon must answer, and its queryId: JSON
 * as the daemon reads it (one value, nesting at most 100 deep) that the
 * phonebook library takes for a request. */
bool answerable(const std::string& text, unsigned int* id)
{
    Json::CharReaderBuilder builder;
    builder["failIfExtra"] = true;
    builder["stackLimit"] = 100;
    std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    Json::Value root;
    try {
        if (!reader->parse(text.data(), text.data() + text.size(), &root, nullptr))
            return false;
    } catch (const Json::Exception&) {
        return false;
    }
    ZEMBRA::Phonebook::Request request(0, "");
    std::string why;
    if (!ZEMBRA::Phonebook::Request::fromJson(root, request, &why))
        return false;
    *id = request.queryId;
    return true;
}

Response readReply(const std::string& text)
{
    Json::Value root;
    std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    FUZZ_CHECK(reader->parse(text.data(), text.data() + text.size(), &root, nullptr));
    FUZZ_CHECK(root.isObject());
    return Response::fromJson(root, "fuzz");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0)
        return 0;
    webconfd::ServerOptions options;
    options.recordsPerReply = 1 + (data[0] & 7);
    if (data[0] & 8)
        options.bytesPerReply = 1024;
    const std::string text(reinterpret_cast<const char*>(data + 1), size - 1);

    webconfd::Store& st = store();
    FUZZ_CHECK(st.begin());
    {
        webconfd::Server server(st, options, [] { return int64_t(1000); });
        server.handle(kOther, "{\"queryId\":1,\"params\":{\"kind\":\"folder\",\"type\":0}}");

        const std::vector<webconfd::Outgoing> out = server.handle(kSource, text);
        unsigned int id = 0;
        const bool mustAnswer = answerable(text, &id);

        std::vector<Response> replies;
        for (const webconfd::Outgoing& o : out) {
            /* primitive, string tag and length around the text */
            FUZZ_CHECK(o.text.size() + 9 <= MAN_MAX_MSG);
            const Response r = readReply(o.text);
            if (o.destination == kSource) {
                FUZZ_CHECK(r.queryId == id);
                FUZZ_CHECK(r.type >= ZEMBRA::Phonebook::Contacts && r.type <= ZEMBRA::Phonebook::Acknowledge);
                FUZZ_CHECK(static_cast<int>(r.items.size()) <= options.recordsPerReply);
                replies.push_back(r);
            } else {
                FUZZ_CHECK(o.destination == kOther);
                FUZZ_CHECK(r.type == ZEMBRA::Phonebook::ConfigChanged);
                FUZZ_CHECK(r.queryId == webconfd::kNoQueryId);
            }
        }
        /* A request with a usable id is answered, else its client waits for
         * its timer; records come first, then exactly one end. */
        FUZZ_CHECK(replies.empty() != mustAnswer);
        for (std::size_t i = 0; i < replies.size(); i++) {
            const Response& r = replies[i];
            const bool last = i + 1 == replies.size();
            const bool ends = r.type == ZEMBRA::Phonebook::Acknowledge || r.items.empty();
            FUZZ_CHECK(ends == last);
            if (i > 0)
                FUZZ_CHECK(r.type == replies[0].type);
        }
    }
    st.rollback();
    return 0;
}
