#include "orvan_sdk/i2cKeyboard/i2cKeyboard.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <system_error>
#include <thread>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <wiringPi.h>
#include <wiringPiI2C.h>

#include <hw/hw.h>
#include <tca8418.h>

namespace {

constexpr int kAddress = 0x34;
constexpr unsigned kRows = 6;
constexpr unsigned kColumns = 10;
constexpr int kInterruptPin = 15;

constexpr int kPressed = 0x80;

constexpr bool reports_release(int col)
{
    return col == 8 || col == 9;
}

// wiringPi's numbered locks; never held together.
constexpr int kControllerLock = 0;
constexpr int kQueueLock = 1;

constexpr uint64_t kSenderPauseUs = 200;
constexpr suseconds_t kSocketLimitUs = 30000;

// First in, first out. All but empty() require kQueueLock. Trivially destructible: the sender outlives
// main.
class CodeQueue {
public:
    bool empty() const { return m_size.load(std::memory_order_acquire) == 0; }

    void push(uint8_t code)
    {
        const size_t size = m_size.load(std::memory_order_relaxed);
        if (size == MAX_CMD_QUEUE_SIZE) {
            return;
        }
        m_codes[(m_first + size) % MAX_CMD_QUEUE_SIZE] = code;
        m_size.store(size + 1, std::memory_order_release);
    }

    uint8_t pop()
    {
        const uint8_t code = m_codes[m_first];
        m_first = (m_first + 1) % MAX_CMD_QUEUE_SIZE;
        m_size.fetch_sub(1, std::memory_order_release);
        return code;
    }

private:
    std::array<uint8_t, MAX_CMD_QUEUE_SIZE> m_codes{};
    size_t m_first = 0;
    std::atomic<size_t> m_size{0};
};

int i2cfdkb = -1;
std::atomic<int> kb_send_flag{0}; // 1 while a code is being queued; for a debugger
CodeQueue cmds;

void queue_code(uint8_t code)
{
    kb_send_flag = 1;
    piLock(kQueueLock);
    cmds.push(code);
    piUnlock(kQueueLock);
    kb_send_flag = 0;
}

} // namespace

int kb_setup()
{
    std::thread sender;
    try {
        sender = std::thread(kb_sender, 0);
    } catch (const std::system_error&) {
        return -1;
    }
    pinMode(kInterruptPin, INPUT);
    i2cfdkb = wiringPiI2CSetup(kAddress);
    if (i2cfdkb <= 0 || tca8418_configure(i2cfdkb, kRows, kColumns) < 0 ||
        wiringPiISR(kInterruptPin, INT_EDGE_FALLING, i2cIRQhandler) >= 0) {
        sender.detach();
        return 0;
    }
    std::fprintf(stderr, "Unable to setup ISR: %s\n", std::strerror(errno));
    return -1;
}

void i2cIRQhandler()
{
    int row = 0;
    int col = 0;
    int state = 0;
    piLock(kControllerLock);
    const int res = tca8418_irq_handler(i2cfdkb, 0, &row, &col, &state);
    piUnlock(kControllerLock);
    if (res < 0) {
        return;
    }
    if (state == kPressed || reports_release(col)) {
        queue_code(static_cast<uint8_t>(col * 16 + row));
    }
}

void send_remote_code()
{
    queue_code(KB_REMOTE_CODE);
}

void kb_sender(int)
{
    for (;;) {
        // This is the only consumer, so the queue stays non-empty.
        if (!cmds.empty()) {
            piLock(kQueueLock);
            uint8_t code = cmds.pop();
            piUnlock(kQueueLock);
            kb_socket_sender(LOCALHOST, &code, 1);
        }
        hw_delay_us(kSenderPauseUs);
    }
}

int kb_socket_sender(const char* address, uint8_t* message, uint32_t sz)
{
    // A command started meanwhile must not keep the connection open: closing it completes the code.
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const timeval limit = {0, kSocketLimitUs};
    if (::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit) < 0 ||
        ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit) < 0) {
        return 1;
    }
    sockaddr_in peer{};
    peer.sin_family = AF_INET;
    peer.sin_port = htons(KB_PORT);
    const bool sent = ::inet_pton(AF_INET, address, &peer.sin_addr) == 1 &&
                      ::connect(fd, reinterpret_cast<const sockaddr*>(&peer), sizeof peer) == 0 &&
                      ::send(fd, message, sz, 0) >= 0;
    ::close(fd);
    return sent ? 0 : 1;
}
