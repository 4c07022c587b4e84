/*
 * Fuzz target: a request text, after an option byte (bits 0-2 records per
 * reply less one, bit 3 a budget of 1 KiB per reply), from "kivo@Local" to
 * the daemon's request handling over the sample phonebook, inside a savepoint
 * rolled back after it. A request the phonebook library accepts is answered
 * at its sender with its queryId: replies of one type that fit one message
 * and the records per reply, records first and exactly one end. Any other
 * gets no reply: its client's timer ends it. Notices go only to the other
 * client the daemon knows.
 */
#include <memory>

#include <json/json.h>

#include "check.h"
#include "import.h"
#include "phonebook/request.h"
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
    std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    try {
        return reader->parse(text.data(), text.data() + text.size(), root, nullptr);
    } catch (const Json::Exception&) {
        return false;
    }
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static webconfd::Store* store = [] {
        PLT_SetLogSink([](int, const char*, const char*, int, const char*) {});
        std::string error;
        auto* s = new webconfd::Store();
        FUZZ_CHECK(s->open(":memory:", &error) && !webconfd::importSample(*s).failed);
        return s;
    }();
    if (size == 0)
        return 0;
    webconfd::ServerOptions options;
    options.recordsPerReply = 1 + (data[0] & 7);
    options.bytesPerReply = data[0] & 8 ? 1024 : options.bytesPerReply;
    const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
    Json::Value root;
    Request request(0, "");
    std::string why;
    const bool answerable = parse(text, &root) && Request::fromJson(root, request, &why);
    FUZZ_CHECK(store->begin());
    webconfd::Server server(*store, options, [] { return int64_t(1000); });
    server.handle("other@Local", "{\"queryId\":1,\"params\":{\"kind\":\"folder\",\"type\":0}}");
    std::vector<Response> replies;
    for (const webconfd::Outgoing& o : server.handle("kivo@Local", text)) {
        FUZZ_CHECK(o.text.size() + 9 <= MAN_MAX_MSG && parse(o.text, &root) && root.isObject());
        const Response r = Response::fromJson(root, "fuzz");
        FUZZ_CHECK(o.destination == "kivo@Local" ||
                   (o.destination == "other@Local" && r.type == ConfigChanged && r.queryId == webconfd::kNoQueryId));
        if (o.destination != "kivo@Local")
            continue;
        FUZZ_CHECK(r.queryId == request.queryId && r.type >= Contacts && r.type <= Acknowledge &&
                   r.items.size() <= static_cast<std::size_t>(options.recordsPerReply));
        FUZZ_CHECK(replies.empty() ||   /* nothing after the end */
                   (r.type == replies[0].type && replies.back().type != Acknowledge && !replies.back().items.empty()));
        replies.push_back(r);
    }
    FUZZ_CHECK(replies.empty() != answerable);
    FUZZ_CHECK(replies.empty() || replies.back().type == Acknowledge || replies.back().items.empty());
    store->rollback();
    return 0;
}
