#include <chrono>
#include <string_view>
#include <system_error>
#include <thread>
#include <vector>

#include <syslog.h>

#include "module_request.h"
#include "orvan_sdk/scpi-parser/scpi_orvanx.h"

using HaldeElec::Orvan::request_module;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

namespace {

constexpr std::string_view kSelfTestQuery = "*TST?\r\n";

} // namespace

void Scpi_Orvanx::wait_for_channels_ready(int numChannels, int max_wait_sec)
{
    if (numChannels < 1 || numChannels > kMaxChannels) {
        return;
    }
    const steady_clock::time_point deadline = steady_clock::now() + std::chrono::seconds(max_wait_sec);

    const auto poll_until_ready = [this, deadline](int ch) {
        milliseconds delay_ms(100);
        while (steady_clock::now() < deadline) {
            if (checkOrvanReply(request_module(*this, ch, kSelfTestQuery))) {
                m_isLive[ch - 1] = true;
                return;
            }
            std::this_thread::sleep_for(delay_ms);
            // 1000 limits the doubling, not the delay: from 800 it increases to 1600 and stays there.
            if (delay_ms < milliseconds(1000)) {
                delay_ms *= 2;
            }
        }
    };

    std::vector<std::thread> workers;
    workers.reserve(static_cast<size_t>(numChannels));
    for (int ch = 1; ch <= numChannels; ++ch) {
        try {
            workers.emplace_back(poll_until_ready, ch);
        } catch (const std::system_error& error) {
            ::syslog(LOG_ERR, "%s: channel %d not polled: %s", __func__, ch, error.what());
        }
    }
    for (std::thread& worker : workers) {
        worker.join();
    }
}
