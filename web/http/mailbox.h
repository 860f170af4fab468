#ifndef ORVAN_WEB_MAILBOX_H
#define ORVAN_WEB_MAILBOX_H

#include <functional>
#include <mutex>
#include <vector>

#include <unique_fd.h>

namespace orvan_web {

/** Functions that other threads want a loop to call. */
class Mailbox {
public:
    Mailbox(); /**< @throws std::system_error */

    /** Has the loop call `task`. Any thread; does nothing after close(). */
    void post(std::function<void()> task);

    /** Readable while there are tasks. */
    int descriptor() const { return m_event.get(); }

    /** Calls the tasks posted so far, in order. The loop's thread. */
    void run();

    /** Drops the tasks that were not called, and all to come. */
    void close();

private:
    orvan_common::UniqueFd m_event;
    std::mutex m_mutex;
    std::vector<std::function<void()>> m_tasks;
    bool m_closed = false;
};

} // namespace orvan_web

#endif
