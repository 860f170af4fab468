#ifndef ORVAN_TESTS_WEB_FAKE_SERVICE_H
#define ORVAN_TESTS_WEB_FAKE_SERVICE_H

#include <atomic>
#include <deque>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <dataorvan.h>
#include <unique_fd.h>

namespace orvan_test {

/**
 * The service as the web process sees it, with injectable faults: its two Unix sockets in a folder of their
 * own, and records in shared memory. Its modules know the frequency, power and so on as text, understand
 * units, and keep an error queue.
 */
class FakeService {
public:
    explicit FakeService(int channels = 2);
    ~FakeService();
    FakeService(const FakeService&) = delete;
    FakeService& operator=(const FakeService&) = delete;

    std::string folder() const { return m_folder; }
    std::string object() const { return m_object; }

    /** Ends and begins to serve, with modules and records as they are. */
    void stop();
    void start();

    /** Executes a message as another client would, with its own selection. @return the response */
    std::string other_client(int channel, const std::string& message);

    /** A module's value, "2500000000". */
    std::string value(int channel, const std::string& header);
    /** Sets it in the module alone. */
    void set_value(int channel, const std::string& header, const std::string& value);
    /** Its record. */
    ORVAN_CONFIG record(int channel);
    void change_record(int channel, int tag, const std::string& text);

    /** Errors in a module's own queue. */
    size_t module_errors(int channel);
    /** The messages of this connection so far, without those for errors. */
    std::vector<std::string> messages();
    void forget_messages();

    // Faults.
    void unplug(int channel, bool unplugged); /**< it answers to nobody; the next request fails */
    void fail(int channel, bool failed);      /**< as counted */
    std::atomic<bool> silent = false;         /**< answers nothing */
    std::atomic<bool> bytewise = false;       /**< sends a byte at a time */
    void refuse(const std::string& header);   /**< modules do not know it */
    void respond(const std::string& message, const std::string& response); /**< instead of executing it */

private:
    struct Module {
        std::map<std::string, std::string> values;
        std::deque<std::string> errors;
        double requests = 0;
        bool failed = false;
        bool unplugged = false;
    };
    struct Session {
        int channel = 1;
        std::string errors;
    };

    void serve();
    void serve_scpi(int fd);
    void serve_counters(int fd);
    std::string execute(Session& session, const std::string& message);
    /** @return whether a module got it */
    bool execute_unit(Session& session, const std::string& unit, std::string& response);
    void add_error(Session& session, bool of_module, const std::string& error);
    void mirror(int channel, int tag, const std::string& text);
    std::string counters_document();

    std::string m_folder;
    std::string m_object;
    int m_channels;
    ORVAN_CONFIG* m_records = nullptr;
    std::mutex m_mutex; // guards modules and what is said
    std::vector<Module> m_modules;
    std::vector<std::string> m_messages;
    std::vector<std::string> m_refused;
    int m_documents = 0; // sent; the age of the last error
    std::map<std::string, std::string> m_responses;
    orvan_common::UniqueFd m_scpi;
    orvan_common::UniqueFd m_counters;
    orvan_common::UniqueFd m_stop;
    std::thread m_thread;
    std::vector<std::thread> m_sessions;
};

} // namespace orvan_test

#endif
