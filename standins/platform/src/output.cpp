/*
 * Bounded output: one queue of (descriptor, bytes) in the order written, a
 * writer thread that drains it with blocking writes, and the hand-over to a
 * line editor. Only the writer (or the editor holding the queue) ever waits
 * for the reader of standard output or error.
 */
#include "platform/output.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <deque>
#include <mutex>
#include <thread>

#include "internal.h"

namespace {

/* How long the finish waits for a writer that makes no progress. */
constexpr auto kFinishPatience = std::chrono::seconds(2);

void writeAll(int fd, const std::string& bytes)
{
    for (std::size_t done = 0; done < bytes.size();) {
        const ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return;   // nowhere to write: the bytes are gone either way
        done += static_cast<std::size_t>(n);
    }
}

std::string dropNotice(unsigned long long bytes, const char* what)
{
    return "ERROR platform PLT_Output:0 " + std::to_string(bytes) + " bytes of " + what + " output dropped\n";
}

class Output {
public:
    void start(std::size_t bound)
    {
        std::lock_guard<std::mutex> lock(mu_);
        if (running_)
            return;
        bound_ = bound;
        running_ = true;
        stopping_ = false;
        if (wake_ < 0)
            wake_ = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
        writer_ = std::thread([this] { run(); });
    }

    /* False when not started: the caller writes itself. */
    bool push(int fd, const char* bytes, std::size_t length)
    {
        std::lock_guard<std::mutex> lock(mu_);
        if (!running_)
            return false;
        if (queued_ + length > bound_) {
            (fd == 1 ? droppedTerminal_ : droppedLog_) += length;
            return true;
        }
        queue_.emplace_back(fd, std::string(bytes, length));
        queued_ += length;
        if (held_)
            poke();
        cv_.notify_all();
        return true;
    }

    void finish()
    {
        std::unique_lock<std::mutex> lock(mu_);
        if (!running_)
            return;
        held_ = false;
        cv_.notify_all();
        for (;;) {
            const unsigned long long before = written_;
            if (cv_.wait_for(lock, kFinishPatience, [&] { return queue_.empty() && !writing_; }))
                break;
            if (written_ == before)
                break;   // the reader does not read: what is left is dropped
        }
        for (const auto& entry : queue_)
            (entry.first == 1 ? droppedTerminal_ : droppedLog_) += entry.second.size();
        queue_.clear();
        queued_ = 0;
        stopping_ = true;
        running_ = false;
        const bool stuck = writing_;
        const std::string notice = takeNotice();
        cv_.notify_all();
        lock.unlock();
        if (stuck) {
            writer_.detach();   // blocked in a write that may never return; it touches only this object, which stays
        } else {
            writer_.join();
        }
        // Reported only where it cannot block: standard error may be the stuck one.
        pollfd p = {2, POLLOUT, 0};
        if (!notice.empty() && poll(&p, 1, 0) == 1 && (p.revents & POLLOUT))
            writeAll(2, notice);
    }

    void hold(bool on)
    {
        std::unique_lock<std::mutex> lock(mu_);
        if (!running_)
            return;
        cv_.wait(lock, [&] { return !writing_; });
        held_ = on;
        if (on && !queue_.empty())
            poke();
        cv_.notify_all();
    }

    std::vector<std::pair<int, std::string>> take()
    {
        std::lock_guard<std::mutex> lock(mu_);
        eventfd_t ignored;
        if (wake_ >= 0)
            (void)eventfd_read(wake_, &ignored);
        std::vector<std::pair<int, std::string>> out(queue_.begin(), queue_.end());
        queue_.clear();
        queued_ = 0;
        const std::string notice = takeNotice();
        if (!notice.empty())
            out.emplace_back(2, notice);
        cv_.notify_all();
        return out;
    }

    int wakeFd()
    {
        std::lock_guard<std::mutex> lock(mu_);
        return wake_;
    }

private:
    void run()
    {
        std::unique_lock<std::mutex> lock(mu_);
        for (;;) {
            cv_.wait(lock, [&] { return stopping_ || (!held_ && (!queue_.empty() || hasDrops())); });
            if (stopping_)
                return;
            std::deque<std::pair<int, std::string>> batch;
            batch.swap(queue_);
            queued_ = 0;
            if (batch.empty())
                batch.emplace_back(2, takeNotice());   // caught up: say what was lost
            writing_ = true;
            lock.unlock();
            for (const auto& entry : batch)
                writeAll(entry.first, entry.second);
            lock.lock();
            writing_ = false;
            for (const auto& entry : batch)
                written_ += entry.second.size();
            cv_.notify_all();
        }
    }

    bool hasDrops() const { return droppedTerminal_ + droppedLog_ > 0; }

    std::string takeNotice()
    {
        std::string notice;
        if (droppedTerminal_ > 0)
            notice += dropNotice(droppedTerminal_, "terminal");
        if (droppedLog_ > 0)
            notice += dropNotice(droppedLog_, "log");
        droppedTerminal_ = droppedLog_ = 0;
        return notice;
    }

    void poke()
    {
        if (wake_ >= 0)
            (void)eventfd_write(wake_, 1);
    }

    std::mutex mu_;
    std::condition_variable cv_;
    std::deque<std::pair<int, std::string>> queue_;
    std::size_t queued_ = 0, bound_ = 0;
    unsigned long long droppedTerminal_ = 0, droppedLog_ = 0, written_ = 0;
    bool running_ = false, stopping_ = false, held_ = false, writing_ = false;
    int wake_ = -1;
    std::thread writer_;
};

/* Never destroyed: a writer stuck in a write at the end may still use it. */
Output& output()
{
    static Output* const o = new Output;
    return *o;
}

/* Programs that do not finish their output themselves still have it
 * written at their end. */
struct FinishAtExit {
    ~FinishAtExit() { output().finish(); }
} g_finishAtExit;

}  // namespace

namespace plt {

void writeOutput(int fd, const std::string& bytes)
{
    if (output().push(fd, bytes.data(), bytes.size()))
        return;
    std::FILE* stream = fd == 2 ? stderr : stdout;
    std::fwrite(bytes.data(), 1, bytes.size(), stream);
    std::fflush(stream);
}

void writeOutputf(int fd, const char* format, ...)
{
    va_list ap;
    va_start(ap, format);
    char small[512];
    va_list copy;
    va_copy(copy, ap);
    const int n = std::vsnprintf(small, sizeof small, format, copy);
    va_end(copy);
    std::string text;
    if (n >= 0 && static_cast<std::size_t>(n) < sizeof small) {
        text.assign(small, static_cast<std::size_t>(n));
    } else if (n >= 0) {
        text.resize(static_cast<std::size_t>(n) + 1);
        std::vsnprintf(&text[0], text.size(), format, ap);
        text.resize(static_cast<std::size_t>(n));
    }
    va_end(ap);
    writeOutput(fd, text);
}

}  // namespace plt

void PLT_StartBoundedOutput(std::size_t bytes)
{
    output().start(bytes);
}

void PLT_Output(int fd, const char* bytes, std::size_t length)
{
    plt::writeOutput(fd, std::string(bytes, length));
}

void PLT_FinishOutput()
{
    output().finish();
}

void PLT_HoldOutput(bool hold)
{
    output().hold(hold);
}

int PLT_OutputWakeFd()
{
    return output().wakeFd();
}

std::vector<std::pair<int, std::string>> PLT_TakeOutput()
{
    return output().take();
}
