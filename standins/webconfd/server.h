/*
 * The daemon's request handling, without sockets: one request text in, the
 * reply texts and their destinations out. It reads requests and writes
 * replies in the phonebook library's JSON forms, runs searches and changes
 * on the store, pages the matches into replies that fit a datagram, keeps
 * the list of known clients for the config-changed notices, and applies the
 * faults asked for on the command line.
 */
#ifndef WEBCONFD_SERVER_H
#define WEBCONFD_SERVER_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "phonebook/request.h"
#include "store.h"

namespace webconfd {

/* Primitive of every message the daemon sends. */
constexpr unsigned int kReplyPrimitive = 0x00830002;
/* queryId of config-changed notices: the module counts its ids up from 0,
 * so this one is open only after four thousand million requests. */
constexpr unsigned int kNoQueryId = 0xFFFFFFFFu;
/* Reply type sent by --fault-invalid-type: none of the reply types. */
constexpr int kInvalidReplyType = 99;

/* Misbehaviour on demand, for demonstrations and tests. They apply to the
 * replies to requests, not to config-changed notices. */
struct Faults {
    uint32_t delayMs = 0;       // wait before sending each reply
    uint32_t dropPercent = 0;   // 0..100: share of replies not sent
    uint32_t seed = 1;          // of the drop choice, so a run can be repeated
    bool notJson = false;       // send only the first half of each reply
    bool invalidType = false;   // send kInvalidReplyType as the type
    bool duplicate = false;     // send each reply twice
};

struct ServerOptions {
    int32_t recordsPerReply = 20;
    std::size_t bytesPerReply = 16384;   // of records' JSON, besides the envelope
    int32_t defaultSize = 100;           // for a request's size 0 (or less)
    int32_t maxSize = 1000;
    int64_t clientTtlSeconds = 600;      // a client is known this long after its last request
    bool verbose = false;                // log every request
    Faults faults;
};

/* One message to send: its JSON text to `destination`, an IPC address,
 * after waiting `delayMs`; a reply to a search says so, and whether it is
 * the empty one that ends the search. */
struct Outgoing {
    std::string destination;
    std::string text;
    uint32_t delayMs;
    uint32_t queryId = kNoQueryId;
    bool search = false;
    bool ends = false;
};

class Server {
public:
    /* Seconds of a monotonic clock; injected so tests can age clients. */
    typedef std::function<int64_t()> Clock;

    Server(Store& store, const ServerOptions& options, Clock clock = Clock());

    /* Handles one request text that arrived from the IPC address `source`.
     * Returns what to send, in order; nothing for a malformed request (it
     * is logged). Any thread; calls are serialised. */
    std::vector<Outgoing> handle(const std::string& source, const std::string& text);

    /* A config-changed notice for every known client (SIGUSR1). */
    std::vector<Outgoing> announceChange();

    /* Forgets a client whose socket is gone: it gets no more notices. Any
     * thread. */
    void forget(const std::string& address);

private:
    typedef ZEMBRA::Phonebook::Request Request;
    typedef ZEMBRA::Phonebook::Response Response;

    /* A reply on its way out: `response` without its records, which are
     * already written in `items`, each one's compact JSON, comma-separated
     * (empty when there are none). */
    struct Reply {
        Reply(Response r) : response(std::move(r)) {}
        Response response;
        std::string items;
        bool search = false;   // one of a search's replies
    };

    Store& store_;
    ServerOptions options_;
    Clock clock_;
    std::mutex lock_;
    std::mt19937 random_;
    std::map<std::string, int64_t> clients_;   // address -> last request

    Page pageOf(const Request& request) const;
    bool contactRequest(const Request& request, const ZEMBRA::Phonebook::ContactParams& p,
                        std::vector<Reply>* replies);
    bool eventRequest(const Request& request, const ZEMBRA::Phonebook::EventParams& p,
                      std::vector<Reply>* replies);
    void folderRequest(const Request& request, const ZEMBRA::Phonebook::FolderParams& p,
                       std::vector<Reply>* replies);
    template <typename T>
    void addRecords(const Request& request, int type, const Found<T>& found, std::vector<Reply>* replies);
    void addOutgoing(const std::string& destination, Reply reply, std::vector<Outgoing>* out);
    std::vector<Outgoing> noticesExcept(const std::string& source, int64_t now);
};

}  // namespace webconfd

#endif
