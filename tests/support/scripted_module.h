/**
 * A module's end of the link: a TCP server on the loopback that records requests and sends scripted answers.
 */
#ifndef ORVAN_TESTS_SUPPORT_SCRIPTED_MODULE_H
#define ORVAN_TESTS_SUPPORT_SCRIPTED_MODULE_H

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace orvan_test {

/** What a module does with one connection. */
struct ModuleAnswer {
    enum class Kind {
        kReply,       /**< sends `text` and closes */
        kGreet,       /**< sends `text` without waiting for a request, and closes */
        kCloseAtOnce, /**< ends its direction on accept, whatever the peer sends */
        kCloseMute,   /**< reads the request, closes without a word */
        kReset,       /**< reads the request, then aborts the connection with a RST */
        kSilence,     /**< reads the request, sends nothing until the peer closes */
        kTwoSegments, /**< sends `text`; sends `second` when the peer has closed or 500 ms have passed */
        kSlow,        /**< sends `text` after `delay` */
    };
    Kind kind = Kind::kReply;
    std::string text = {};
    std::string second = {};
    std::chrono::milliseconds delay{0};
    /** A request ends with LF; one with another count of bytes (a block) is named here. */
    size_t request_size = 0;
    /** Called once the request has been read; it returns within a bound, as the destructor waits for it. */
    std::function<void()> hold = {};
    /** Makes the text of a reply from the request. */
    std::function<std::string(const std::string& request)> make_text = {};

    static ModuleAnswer reply(std::string text) { return {Kind::kReply, std::move(text)}; }
    static ModuleAnswer reply_made(std::function<std::string(const std::string& request)> make_text)
    {
        return {Kind::kReply, {}, {}, {}, 0, {}, std::move(make_text)};
    }
    static ModuleAnswer reply_to_block(size_t request_size, std::string text)
    {
        return {Kind::kReply, std::move(text), {}, {}, request_size};
    }
    static ModuleAnswer reply_after(std::function<void()> hold, std::string text)
    {
        return {Kind::kReply, std::move(text), {}, {}, 0, std::move(hold)};
    }
    static ModuleAnswer greet(std::string text) { return {Kind::kGreet, std::move(text)}; }
    static ModuleAnswer close_at_once() { return {Kind::kCloseAtOnce}; }
    static ModuleAnswer close_mute() { return {Kind::kCloseMute}; }
    static ModuleAnswer reset() { return {Kind::kReset}; }
    static ModuleAnswer silence() { return {Kind::kSilence}; }
    static ModuleAnswer two_segments(std::string first, std::string second)
    {
        return {Kind::kTwoSegments, std::move(first), std::move(second)};
    }
    static ModuleAnswer slow(std::string text, std::chrono::milliseconds delay)
    {
        return {Kind::kSlow, std::move(text), {}, delay};
    }
};

/**
 * Listens from its construction to its destruction, a thread for each connection. All calls are safe on
 * any thread. The destructor wakes and joins every thread, including silent ones.
 *
 *     ScriptedModule module;                        // 127.0.0.1, a free port
 *     module.then(ModuleAnswer::reply("5.0;+OK\r\n"));
 *     module.always(ModuleAnswer::reply("+OK\r\n")); // once the `then` answers are used up
 */
class ScriptedModule {
public:
    /** Answers "+OK\r\n" by default. */
    explicit ScriptedModule(const std::string& address = "127.0.0.1");
    ~ScriptedModule();
    ScriptedModule(const ScriptedModule&) = delete;
    ScriptedModule& operator=(const ScriptedModule&) = delete;

    const std::string& address() const { return m_address; }
    int port() const { return m_port; }

    /** Queues an answer for one further connection. */
    void then(ModuleAnswer answer);
    /** The answer when no `then` is left. */
    void always(ModuleAnswer answer);
    /** Calls `watcher` with each request, before its answer, on the thread of its connection. */
    void on_request(std::function<void(const std::string&)> watcher);

    /** Requests in the order in which their connections were accepted. One is listed once it has been read
     * whole. */
    std::vector<std::string> requests() const;
    /** Connections accepted so far. */
    size_t connections() const;
    /** Connections served to their end. */
    size_t finished() const;

    /** Waits until at least `count` connections are served to their end; false when `bound` passes first. */
    bool wait_finished(size_t count, std::chrono::milliseconds bound = std::chrono::seconds(5)) const;
    /** Waits until at least `count` requests are listed; false when `bound` passes first. */
    bool wait_requests(size_t count, std::chrono::milliseconds bound = std::chrono::seconds(5)) const;

private:
    struct Request {
        bool complete = false;
        std::string text;
    };

    void accept_all();
    void join_ended();
    void serve(int fd, size_t index, const ModuleAnswer& answer);
    std::string read_request(int fd, size_t size) const;
    bool wait_for_close(int fd, std::chrono::milliseconds bound) const;
    size_t complete_requests() const;

    std::string m_address;
    int m_port;
    int m_listener;
    int m_stop; // eventfd; readable once the destructor has begun
    mutable std::mutex m_mutex;
    mutable std::condition_variable m_changed;
    std::deque<ModuleAnswer> m_next;
    ModuleAnswer m_always = ModuleAnswer::reply("+OK\r\n");
    std::function<void(const std::string&)> m_watcher;
    std::vector<Request> m_requests;
    size_t m_finished = 0;
    std::map<size_t, std::thread> m_workers; // by number of the connection
    std::vector<size_t> m_ended;             // numbers of the workers to be joined
    std::thread m_acceptor;
};

} // namespace orvan_test

#endif
