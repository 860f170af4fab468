#include "orvan_sdk/scpi-parser/scpi_progress.h"

#include <atomic>

namespace {

std::atomic<uint32_t> g_progress = 0;
thread_local bool t_ignored = false;

} // namespace

uint32_t scpi_progress()
{
    return g_progress.load(std::memory_order_relaxed);
}

void scpi_note_progress()
{
    if (!t_ignored) {
        g_progress.fetch_add(1, std::memory_order_relaxed);
    }
}

void scpi_ignore_progress_of_this_thread()
{
    t_ignored = true;
}
