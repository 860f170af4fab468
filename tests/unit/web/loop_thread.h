#ifndef ORVAN_TESTS_WEB_LOOP_THREAD_H
#define ORVAN_TESTS_WEB_LOOP_THREAD_H

#include <future>
#include <thread>
#include <utility>

#include "instrument/loop.h"

namespace orvan_test {

/** Runs a loop on a thread of its own. What lives on the loop must be made before it and outlive it. */
class LoopThread {
public:
    explicit LoopThread(orvan_web::InstrumentLoop& loop) : m_loop(loop), m_thread([&loop] { loop.run(); }) {}
    ~LoopThread()
    {
        m_loop.stop();
        m_thread.join();
    }
    LoopThread(const LoopThread&) = delete;
    LoopThread& operator=(const LoopThread&) = delete;

    /** Calls the function on the loop's thread and returns its result. */
    template <typename Function>
    auto call(Function function) const
    {
        auto task = std::make_shared<std::packaged_task<decltype(function())()>>(std::move(function));
        auto result = task->get_future();
        m_loop.post([task] { (*task)(); });
        return result.get();
    }

private:
    orvan_web::InstrumentLoop& m_loop;
    std::thread m_thread;
};

} // namespace orvan_test

#endif
