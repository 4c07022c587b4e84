/*
 * The daemon's outgoing replies, queued per destination. Linux keeps only a
 * few unread datagrams per Unix socket (net.unix.max_dgram_qlen, 10), so a
 * client that reads all the time still finds its queue full now and then
 * during a burst of replies; the send is then retried when its queue has
 * room instead of being dropped. Each destination's wait is bounded in time
 * and bytes: a client that takes nothing for `patienceMs` is given up (its
 * queued replies are dropped), and one never holds up another, since no
 * send waits. A search that lost a reply loses the rest of its replies too,
 * its ending empty reply above all, so the client never takes a shortened
 * answer for a whole one: its timer ends the search.
 */
#ifndef WEBCONFD_OUTBOX_H
#define WEBCONFD_OUTBOX_H

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "server.h"

namespace webconfd {

/* What became of one send. */
enum class SendResult {
    Sent,
    Full,      // the receiver's queue is full now: try again later
    Gone,      // no one is bound at the address any more
    Refused,   // this message cannot be sent at all (logged by the sender)
};

struct OutboxLimits {
    std::size_t bytesPerDestination = 4u << 20;   // queued for one client
    std::size_t bytesInAll = 32u << 20;           // queued for all clients
    int64_t patienceMs = 2000;                    // a client that takes nothing this long is given up
    int64_t retryMs = 5;                          // a full queue is tried again after this
};

class Outbox {
public:
    /* Sends one message now, never waiting; `retry` when the destination's
     * queue was full at the last try. Called without the outbox's lock. */
    typedef std::function<SendResult(const std::string& destination, const std::string& text, bool retry)> Sender;
    /* Told when a destination is gone, to forget the client. */
    typedef std::function<void(const std::string& destination)> GoneHandler;
    /* Milliseconds of a monotonic clock. */
    typedef std::function<int64_t()> Clock;

    Outbox(Sender send, const OutboxLimits& limits, GoneHandler gone = GoneHandler(), Clock clock = Clock());
    ~Outbox() { stop(); }

    /* Sends `m` at once when its destination's queue is empty and has room,
     * queues it otherwise, or drops it at a bound. Any thread; messages to
     * one destination leave in the order they were posted. */
    void post(const Outgoing& m);

    /* Retries the destinations whose time has come and gives up on the
     * ones past their patience. Returns the milliseconds until it should
     * run again, -1 when nothing waits. start() runs it on a thread of its
     * own; tests call it by hand. */
    int64_t flush();
    void start();
    void stop();

    /* Bytes queued for all destinations. */
    std::size_t queuedBytes() const;

private:
    struct Item {
        std::string text;
        uint32_t queryId;
        bool search;
        bool ends;
    };
    struct Destination {
        std::deque<Item> queue;
        std::size_t bytes = 0;
        bool sending = false;        // a thread sends from the queue now
        bool waiting = false;        // its queue was full: retry at retryAt
        int64_t retryAt = 0;
        int64_t lastProgress = 0;    // a send went through, or the queue was empty
        bool overLogged = false;     // the byte bound's drop is logged for this burst
        std::set<uint32_t> broken;   // searches that lost a reply
    };

    Sender send_;
    OutboxLimits limits_;
    GoneHandler gone_;
    Clock clock_;
    mutable std::mutex lock_;
    std::condition_variable changed_;
    std::map<std::string, Destination> destinations_;
    std::size_t bytes_ = 0;
    uint64_t changes_ = 0;              // raised when the flusher should look again
    std::thread thread_;
    bool stopping_ = false;

    bool keep(const std::string& name, Destination& d, const Item& item);
    void drop(Destination& d, const Item& item);
    void pump(std::unique_lock<std::mutex>& guard, const std::string& name);
    void forget(const std::string& name);
};

}  // namespace webconfd

#endif
