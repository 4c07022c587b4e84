/*
 * Run control of the working platform: a program (never a task) waits
 * until every message sent so far has been handled, or ends all tasks.
 */
#include <cstring>
#include <future>
#include <memory>
#include <mutex>
#include <vector>

#include <boost/asio/post.hpp>

#include "working.h"

using namespace plt::work;

namespace {

std::mutex g_drainMu;  /* Drain and Shutdown never overlap */

}  // namespace

void PLT_Drain()
{
    if (t_task != nullptr) {
        PLT_LOG_ERROR("PLT_Drain called from task %s, ignored", t_task->name.c_str());
        return;
    }
    std::lock_guard<std::mutex> drainLock(g_drainMu);
    for (;;) {
        unsigned long long handled = g_handled.load();
        std::vector<TaskPtr> tasks;
        Reader* reader;
        {
            std::lock_guard<std::mutex> lock(g_mu);
            tasks = g_tasks;
            reader = g_reader.get();
        }
        if (reader == nullptr)
            return;
        /* Datagrams already in the sockets are taken and posted first. */
        std::promise<void> received;
        readerPost(*reader, [reader, &tasks, &received] {
            for (const TaskPtr& t : tasks)
                receiveFrom(*reader, *t, BURST);
            received.set_value();
        });
        received.get_future().wait();
        for (const TaskPtr& t : tasks) {
            std::promise<void> done;
            asio::post(t->io, [&done] { done.set_value(); });
            done.get_future().wait();
        }
        if (g_handled.load() == handled)
            return;
    }
}

void PLT_Shutdown()
{
    if (t_task != nullptr) {
        PLT_LOG_ERROR("PLT_Shutdown called from task %s, ignored", t_task->name.c_str());
        return;
    }
    std::lock_guard<std::mutex> drainLock(g_drainMu);
    std::vector<TaskPtr> tasks;
    std::unique_ptr<Reader> reader;
    {
        std::lock_guard<std::mutex> lock(g_mu);
        tasks.swap(g_tasks);
        reader = std::move(g_reader);
        for (auto& t : g_byIndex)
            t.reset();
        std::memset(TaskIdTbl, 0, sizeof TaskIdTbl);
        g_nextFreeId = 0x10000;
    }
    forgetDrops();
    if (reader) {
        reader->stop.store(true);
        readerPost(*reader, [] {});
        reader->thread.join();
    }
    for (const TaskPtr& t : tasks) {
        t->guard.reset();
        t->io.stop();
        if (t->thread.joinable())
            t->thread.join();
        removeSocketFiles(*t);
    }
    /* Destroying the io_contexts frees the messages and timers still queued. */
    tasks.clear();
    reader.reset();
    forgetConsoles();
}
