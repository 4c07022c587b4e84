/*
 * Timers of the working platform: a message comes back to its task after
 * a delay, on an asio timer of the task's io_context. The unit of the
 * delay is a millisecond unless a program sets another.
 */
#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <new>

#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>

#include "working.h"

using namespace plt::work;

namespace {

std::atomic<unsigned int> g_timerUnitUs{1000};

}  // namespace

int PLT_TimerLocal(CManMessage& msg, int taskNo, unsigned int time)
{
    TaskPtr task;
    RawPtr raw(nullptr, plt::rawFree);
    if (int code = copyForTask(msg, taskNo, &task, &raw))
        return code;
    auto due = std::chrono::steady_clock::now() +
               std::chrono::microseconds(static_cast<uint64_t>(time) * g_timerUnitUs.load());
    /* The timer lives in its handler; a pending one is destroyed with the
     * task's io_context at shutdown, which frees its message. */
    try {
        asio::post(task->io, [t = task.get(), due, r = std::move(raw)]() mutable {
            auto timer = std::make_shared<asio::steady_timer>(t->io, due);
            timer->async_wait([t, timer, r = std::move(r)](const boost::system::error_code& ec) mutable {
                if (!ec)
                    deliver(*t, std::move(r), false, true);
            });
        });
    } catch (const std::bad_alloc&) {
        return MAN_E_NOMEM;
    }
    return MAN_OK;
}

void PLT_SetTimerUnitUs(unsigned int us)
{
    g_timerUnitUs.store(us);
}
