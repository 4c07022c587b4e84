/*
 * Per-destination queues of the daemon's replies: sent at once while the
 * receiver has room, retried every few milliseconds while its queue is
 * full, dropped when it takes nothing within its patience or when the
 * bytes waiting pass a bound. Only one thread sends to a destination at a
 * time, so its messages keep their order; the lock is never held while
 * sending.
 */
#include "outbox.h"

#include <algorithm>
#include <chrono>

#include "platform/log.h"
#include "platform/standin.h"

namespace webconfd {

namespace {

const char kFile[] = "webconfd";

/* Searches remembered per destination as having lost a reply; their ending
 * reply normally follows at once and removes them. */
constexpr std::size_t kMaxBroken = 64;

int64_t steadyMs()
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

}  // namespace

Outbox::Outbox(Sender send, const OutboxLimits& limits, GoneHandler gone, Clock clock)
    : send_(std::move(send)), limits_(limits), gone_(std::move(gone)), clock_(clock ? clock : Clock(steadyMs))
{
}

std::size_t Outbox::queuedBytes() const
{
    std::lock_guard<std::mutex> guard(lock_);
    return bytes_;
}

/* A message that is not sent breaks its search: the search's later
 * replies are dropped too, and its ending reply ends that. */
void Outbox::drop(Destination& d, const Item& item)
{
    if (!item.search)
        return;
    if (item.ends) {
        d.broken.erase(item.queryId);
        return;
    }
    if (d.broken.size() >= kMaxBroken && d.broken.count(item.queryId) == 0)
        d.broken.erase(d.broken.begin());
    d.broken.insert(item.queryId);
}

/* Whether `item` may join its destination's queue. */
bool Outbox::keep(const std::string& name, Destination& d, const Item& item)
{
    if (item.search && d.broken.count(item.queryId) != 0) {
        drop(d, item);
        return false;
    }
    const std::size_t size = item.text.size();
    if (d.bytes + size > limits_.bytesPerDestination || bytes_ + size > limits_.bytesInAll) {
        if (!d.overLogged)
            LOG_ExpError(kFile, "post", __LINE__, "replies to %s dropped: %lu bytes wait for it, %lu for all",
                         name.c_str(), static_cast<unsigned long>(d.bytes), static_cast<unsigned long>(bytes_));
        d.overLogged = true;
        drop(d, item);
        return false;
    }
    return true;
}

void Outbox::post(const Outgoing& m)
{
    Item item{m.text, m.queryId, m.search, m.ends};
    std::unique_lock<std::mutex> guard(lock_);
    Destination& d = destinations_[m.destination];
    if (!keep(m.destination, d, item)) {
        if (d.queue.empty() && d.broken.empty() && !d.sending)
            destinations_.erase(m.destination);
        return;
    }
    if (d.queue.empty() && !d.sending)
        d.lastProgress = clock_();
    d.bytes += item.text.size();
    bytes_ += item.text.size();
    d.queue.push_back(std::move(item));
    if (!d.waiting)
        pump(guard, m.destination);
}

/* Sends from the queue of `name` until it is empty or full. */
void Outbox::pump(std::unique_lock<std::mutex>& guard, const std::string& name)
{
    Destination& d = destinations_[name];
    if (d.sending)
        return;   // the thread that sends now goes on to the new message
    d.sending = true;
    bool retry = d.waiting;
    d.waiting = false;
    while (!d.queue.empty()) {
        Item item = std::move(d.queue.front());
        d.queue.pop_front();
        d.bytes -= item.text.size();
        bytes_ -= item.text.size();
        guard.unlock();
        const SendResult result = send_(name, item.text, retry);
        guard.lock();
        retry = false;
        if (result == SendResult::Sent) {
            d.lastProgress = clock_();
        } else if (result == SendResult::Refused) {
            drop(d, item);
        } else if (result == SendResult::Full) {
            d.bytes += item.text.size();
            bytes_ += item.text.size();
            d.queue.push_front(std::move(item));
            d.waiting = true;
            d.retryAt = clock_() + limits_.retryMs;
            changes_++;
            changed_.notify_all();
            break;
        } else {
            forget(name);
            guard.unlock();
            if (gone_)
                gone_(name);
            guard.lock();
            return;
        }
    }
    d.sending = false;
    if (d.queue.empty()) {
        d.overLogged = false;
        if (d.broken.empty())
            destinations_.erase(name);
    }
}

/* Drops everything queued for `name` and the destination itself. */
void Outbox::forget(const std::string& name)
{
    auto it = destinations_.find(name);
    if (it == destinations_.end())
        return;
    bytes_ -= it->second.bytes;
    destinations_.erase(it);
}

int64_t Outbox::flush()
{
    std::unique_lock<std::mutex> guard(lock_);
    const int64_t now = clock_();
    std::vector<std::string> due;
    for (auto& entry : destinations_) {
        Destination& d = entry.second;
        if (!d.waiting || d.sending)
            continue;
        if (now - d.lastProgress >= limits_.patienceMs) {
            LOG_ExpError(kFile, "flush", __LINE__, "%s took no reply for %lld ms: %lu replies (%lu bytes) dropped",
                         entry.first.c_str(), static_cast<long long>(now - d.lastProgress),
                         static_cast<unsigned long>(d.queue.size()), static_cast<unsigned long>(d.bytes));
            for (const Item& item : d.queue)
                drop(d, item);
            bytes_ -= d.bytes;
            d.bytes = 0;
            d.queue.clear();
            d.waiting = false;
            d.overLogged = false;
            if (d.broken.empty())
                due.push_back(entry.first);   // to erase, below
            continue;
        }
        if (now >= d.retryAt)
            due.push_back(entry.first);
    }
    for (const std::string& name : due) {
        /* pump() lets go of the lock while it sends: another thread may
         * be sending to this destination by now, and holds on to it. */
        auto it = destinations_.find(name);
        if (it == destinations_.end() || it->second.sending)
            continue;
        if (it->second.queue.empty())
            destinations_.erase(it);
        else
            pump(guard, name);
    }
    int64_t next = -1;
    const int64_t later = clock_();
    for (const auto& entry : destinations_) {
        const Destination& d = entry.second;
        if (!d.waiting)
            continue;
        const int64_t at = std::min(d.retryAt, d.lastProgress + limits_.patienceMs);
        const int64_t wait = std::max<int64_t>(0, at - later);
        next = next < 0 ? wait : std::min(next, wait);
    }
    return next;
}

void Outbox::start()
{
    thread_ = std::thread([this] {
        std::unique_lock<std::mutex> guard(lock_);
        while (!stopping_) {
            const uint64_t seen = changes_;
            guard.unlock();
            const int64_t wait = flush();
            guard.lock();
            auto woken = [&] { return stopping_ || changes_ != seen; };
            if (wait < 0)
                changed_.wait(guard, woken);
            else
                changed_.wait_for(guard, std::chrono::milliseconds(wait), woken);
        }
    });
}

void Outbox::stop()
{
    {
        std::lock_guard<std::mutex> guard(lock_);
        stopping_ = true;
        changes_++;
    }
    changed_.notify_all();
    if (thread_.joinable())
        thread_.join();
}

}  // namespace webconfd
