#ifndef ORVAN_TESTS_WEB_HTTP_FIXTURE_H
#define ORVAN_TESTS_WEB_HTTP_FIXTURE_H

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/socket.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "http/server.h"
#include "support/loopback.h"
#include <unique_fd.h>

namespace orvan_test {

/** Lets everything pass but what a test refuses. */
class OpenGate : public orvan_web::Gate {
public:
    std::optional<orvan_web::Response> refuse(const orvan_web::Request&, const std::string& local) override
    {
        last_local = local;
        return std::nullopt;
    }
    std::optional<orvan_web::Response> refuse_change(const orvan_web::Request&) override
    {
        return refuse_changes ? std::optional(orvan_web::problem(403, "not now")) : std::nullopt;
    }
    bool refuse_changes = false;
    std::string last_local;
};

/** A folder of its own, removed at the end. */
class ScratchFolder {
public:
    ScratchFolder()
    {
        std::string name = std::filesystem::temp_directory_path() / "orvan-web-XXXXXX";
        m_path = ::mkdtemp(name.data());
    }
    ~ScratchFolder() { std::filesystem::remove_all(m_path); }
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;
    const std::filesystem::path& path() const { return m_path; }

private:
    std::filesystem::path m_path;
};

/** A client's connection to the server. */
class WebClient {
public:
    explicit WebClient(int port, const std::string& from = {})
        : m_fd(connect_to_loopback("127.0.0.1", port, from))
    {
    }
    int fd() const { return m_fd.get(); }
    bool send(const std::string& bytes) const
    {
        return ::send(m_fd.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL) ==
               static_cast<ssize_t>(bytes.size());
    }
    /** The head of the next reply, without its empty line. */
    std::string head() const { return read_until(m_fd.get(), "\r\n\r\n"); }
    /** The next reply with a body of the length it announces. */
    std::string reply() const
    {
        const std::string head = this->head();
        const size_t at = head.find("Content-Length: ");
        return head +
               (at == std::string::npos ? "" : read_exactly(m_fd.get(), std::stoul(head.substr(at + 16))));
    }
    std::string until(const std::string& end) const { return read_until(m_fd.get(), end); }
    /** What comes until the server closes; waits for at most 20 s. */
    std::string rest() const { return read_until(m_fd.get(), "\1never\1", std::chrono::seconds(20)); }
    /** Whether the server has closed within 20 s, also by a reset. */
    bool closed() const
    {
        timeval patience{20, 0};
        ::setsockopt(m_fd.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        for (char buffer[4096];;) {
            const ssize_t size = ::recv(m_fd.get(), buffer, sizeof buffer, 0);
            if (size <= 0) {
                return size == 0 || errno == ECONNRESET;
            }
        }
    }
    void reset() { m_fd.reset(); }

private:
    orvan_common::UniqueFd m_fd;
};

/** Status of a reply; 0 if there is none. */
inline int status_of(const std::string& reply)
{
    return reply.size() < 12 ? 0 : std::atoi(reply.c_str() + 9);
}

inline std::string get(const std::string& path, const std::string& headers = {})
{
    return "GET " + path + " HTTP/1.1\r\nHost: 127.0.0.1\r\n" + headers + "\r\n";
}

inline std::string post(const std::string& path, const std::string& body, const std::string& headers = {})
{
    return "POST " + path + " HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Length: " + std::to_string(body.size()) +
           "\r\n" + headers + "\r\n" + body;
}

/** A server on a free port of the loopback with some routes; a test may change the parts before start(). */
class HttpServerTest : public ::testing::Test {
protected:
    HttpServerTest()
    {
        using namespace orvan_web;
        const auto echo = [](const std::shared_ptr<Exchange>& exchange, std::vector<std::string> parameters) {
            const Request& request = exchange->request();
            std::string text = request.method + ' ' + request.path + " from " + request.peer;
            for (const auto& parameter : parameters) {
                text += " <" + parameter + '>';
            }
            for (const auto& [name, value] : request.query) {
                text += ' ' + name + '=' + value;
            }
            exchange->reply({200, "text/plain", text + " body " + request.body, {}});
        };
        const auto keep = [this](std::shared_ptr<Exchange> exchange, const std::vector<std::string>&) {
            const std::lock_guard lock(mutex);
            kept.push_back(std::move(exchange));
        };
        parts.routes = {
            {"GET", "/api/echo/{name}", false, "", nullptr, nullptr, echo},
            {"POST", "/api/echo/{name}", false, "", nullptr, nullptr, echo},
            {"PATCH", "/api/change", true, "", nullptr, nullptr, echo},
            {"GET", "/api/later", false, "", nullptr, nullptr, keep},
            {"GET", "/api/broken", false, "", nullptr, nullptr,
             [](const std::shared_ptr<Exchange>&, const std::vector<std::string>&) {
                 throw std::runtime_error("a broken handler");
             }},
        };
        parts.on_stream = [this](std::shared_ptr<EventStream> stream) {
            const std::lock_guard lock(mutex);
            streams.push_back(std::move(stream));
        };
    }

    void start()
    {
        const int fd = listen_on_loopback("127.0.0.1", 1024);
        ::fcntl(fd, F_SETFL, O_NONBLOCK);
        if (send_buffer != 0) {
            ::setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &send_buffer, sizeof send_buffer);
        }
        port = local_port(fd);
        parts.listeners.emplace_back(fd);
        server = std::make_unique<orvan_web::HttpServer>(std::move(parts), gate);
    }

    std::string ask(const std::string& request) const
    {
        const WebClient client(port);
        client.send(request);
        return client.reply();
    }

    std::shared_ptr<orvan_web::EventStream> stream(size_t index = 0)
    {
        const std::lock_guard lock(mutex);
        return index < streams.size() ? streams[index] : nullptr;
    }

    std::shared_ptr<orvan_web::Exchange> taken_exchange()
    {
        const std::lock_guard lock(mutex);
        if (kept.empty()) {
            return nullptr;
        }
        auto exchange = std::move(kept.back());
        kept.pop_back();
        return exchange;
    }

    orvan_web::ServerParts parts;
    OpenGate gate;
    std::mutex mutex;
    std::vector<std::shared_ptr<orvan_web::Exchange>> kept;
    std::vector<std::shared_ptr<orvan_web::EventStream>> streams;
    int port = 0;
    int send_buffer = 0; /**< of the server's connections; 0: the system's */
    std::unique_ptr<orvan_web::HttpServer> server;
};

} // namespace orvan_test

#endif
