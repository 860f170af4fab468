/**
 * Queries with numbers, which a module answers with the number: whose answer is whose, and in whose turns.
 */
#ifndef ORVAN_TESTS_NUMBERED_QUERIES_H
#define ORVAN_TESTS_NUMBERED_QUERIES_H

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "service/message_sink.h"
#include "support/eventually.h"

namespace orvan_test {

constexpr int kNumbersOfAClient = 1'000'000;
inline const std::string kQuery = ":FREQ? ";

inline int client_of(int number)
{
    return number / kNumbersOfAClient;
}

/** The number in a query of the test; 0 in other messages. */
inline int number_in(std::string_view query)
{
    const size_t at = query.find("? ");
    return at == std::string_view::npos ? 0 : std::atoi(std::string(query.substr(at + 2)).c_str());
}

/** Notes the queries in the order of their execution. */
class Turns : public orvan_service::MessageSink {
public:
    explicit Turns(orvan_service::MessageSink& sink) : m_sink(sink) {}

    void execute(int socket, char* data, size_t size) override
    {
        if (const int number = number_in({data, size}); number > 0) {
            const std::lock_guard lock(m_mutex);
            m_numbers.push_back(number);
        }
        m_sink.execute(socket, data, size);
    }
    void client_lost(int socket) override { m_sink.client_lost(socket); }

    ptrdiff_t count() const
    {
        const std::lock_guard lock(m_mutex);
        return std::ssize(m_numbers);
    }
    bool include(int number) const
    {
        const std::lock_guard lock(m_mutex);
        return std::find(m_numbers.begin(), m_numbers.end(), number) != m_numbers.end();
    }
    std::vector<int> numbers() const
    {
        const std::lock_guard lock(m_mutex);
        return m_numbers;
    }

private:
    orvan_service::MessageSink& m_sink;
    mutable std::mutex m_mutex;
    std::vector<int> m_numbers;
};

/** The queries of one client, and what became of them. For one thread. */
class Script {
public:
    /** @param channel that answers @param end of each answer */
    Script(int client, int channel, std::string end, const Turns& turns)
        : m_turns(turns), m_channel(channel), m_end(std::move(end)), m_number(client * kNumbersOfAClient)
    {
    }

    std::string next() { return kQuery + std::to_string(++m_number) + '\n'; }

    /** The last query has reached the server: from now on its turn is due. */
    void sent()
    {
        m_asked = std::chrono::steady_clock::now();
        m_turns_before[m_number] = m_turns.count();
    }

    /** Until the last query is being executed. */
    void wait_for_turn() const
    {
        EXPECT_TRUE(eventually([this] { return m_turns.include(m_number); }));
    }

    /** The device was cleared: the next query is the first after that. */
    void cleared() { m_after_clear.insert(m_number + 1); }
    bool follows_clear(int number) const { return m_after_clear.count(number) > 0; }

    /** Counts an answer, which has to be that of the last query. */
    void received(const std::string& answer)
    {
        m_longest = std::max(m_longest, std::chrono::steady_clock::now() - m_asked);
        const int number = std::atoi(answer.c_str());
        if (answer == std::to_string(m_number) + '.' + std::to_string(m_channel) + m_end) {
            ++m_right;
        } else if (client_of(number) == client_of(m_number) && number < m_number) {
            m_stale.push_back(answer);
        } else {
            m_wrong.push_back(answer);
        }
    }

    int right() const { return m_right; }
    const std::vector<std::string>& stale() const { return m_stale; }
    const std::vector<std::string>& wrong() const { return m_wrong; }
    std::chrono::steady_clock::duration longest() const { return m_longest; }
    /** Of each query that was sent, the number of queries that had been executed then. */
    const std::map<int, ptrdiff_t>& turns_before() const { return m_turns_before; }

private:
    const Turns& m_turns;
    const int m_channel;
    const std::string m_end;
    int m_number;
    int m_right = 0;
    std::vector<std::string> m_stale;
    std::vector<std::string> m_wrong;
    std::map<int, ptrdiff_t> m_turns_before;
    std::set<int> m_after_clear;
    std::chrono::steady_clock::time_point m_asked;
    std::chrono::steady_clock::duration m_longest{0};
};

} // namespace orvan_test

#endif
