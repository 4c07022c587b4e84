/* Fuzz target: a request text from "kivo@Local", after an option byte, to the
 * daemon over the sample phonebook, rolled back after it. What the phonebook
 * library accepts is answered; notices go only to the other client. */
#include <memory>

#include <json/json.h>

#include "check.h"
#include "import.h"
#include "phonebook/request.h"
#include "phonebook/standin.h"
#include "platform/runtime.h"
#include "platform/standin.h"
#include "server.h"
#include "store.h"

using namespace ZEMBRA::Phonebook;

/* JSON as the daemon reads it: one value, nested at most 100 deep. */
static bool parse(const std::string& text, Json::Value* root)
{
    Json::CharReaderBuilder builder;
    builder["failIfExtra"] = true;
    builder["stackLimit"] = 100;
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    try {
        return reader->parse(text.data(), text.data() + text.size(), root, nullptr);
    } catch (const Json::Exception&) {   /* past the nesting limit */
        return false;
    }
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static webconfd::Store store;
    static std::string error;
    static const bool opened = (PLT_SetLogSink([](int, const char*, const char*, int, const char*) {}),
                                store.open(":memory:", &error) && !webconfd::importSample(store).failed);
    if (size == 0)
        return 0;
    webconfd::ServerOptions options;
    options.recordsPerReply = 1 + (data[0] & 7);   /* bit 3: replies of 1 KiB */
    options.bytesPerReply = data[0] & 8 ? 1024 : options.bytesPerReply;
    const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
    Json::Value root;
    Request request(0, "");
    const bool answerable = parse(text, &root) && requestFromJson(root, request, nullptr);
    FUZZ_CHECK(opened && store.begin());
    webconfd::Server server(store, options, [] { return int64_t(1000); });
    server.handle("other@Local", "{\"queryId\":1,\"params\":{\"kind\":\"folder\",\"type\":0}}");
    int replies = 0, type = 0, ended = 0;
    for (const webconfd::Outgoing& o : server.handle("kivo@Local", text)) {
        FUZZ_CHECK(o.text.size() + 9 <= MAN_MAX_MSG && parse(o.text, &root) && root.isObject());
        const Response r = Response::fromJson(root, "fuzz");
        if (o.destination != "kivo@Local") {   /* a notice */
            FUZZ_CHECK(o.destination == "other@Local" && r.type == ConfigChanged && r.queryId == webconfd::kNoQueryId);
            continue;
        }
        /* One type throughout, records first, nothing after the end. */
        FUZZ_CHECK(r.queryId == request.queryId && r.type >= Contacts && r.type <= Acknowledge && !ended &&
                   (replies++ == 0 || r.type == type) && r.items.size() <= std::size_t(options.recordsPerReply));
        type = r.type;
        ended = r.type == Acknowledge || r.items.empty();
    }
    FUZZ_CHECK((replies > 0) == answerable && (replies == 0 || ended));
    store.rollback();
    return 0;
}
