#include "web_client.h"

#include <cstdlib>

namespace orvan_test {

WebReply web_request(int port, const std::string& method, const std::string& path, const std::string& body)
{
    Client client(port);
    const std::string host = "127.0.0.1:" + std::to_string(port);
    std::string head = method + " " + path + " HTTP/1.1\r\nHost: " + host + "\r\nConnection: close\r\n";
    if (method != "GET") {
        head += "Origin: http://" + host +
                "\r\nContent-Type: application/json\r\nContent-Length: " + std::to_string(body.size()) +
                "\r\n";
    }
    client.send(head + "\r\n" + body);
    std::string text;
    for (std::string line = client.read_line(); !line.empty(); line = client.read_line()) {
        text += line;
    }
    WebReply reply;
    const size_t end = text.find("\r\n\r\n");
    if (text.starts_with("HTTP/1.1 ") && end != std::string::npos) {
        reply.status = std::atoi(text.c_str() + 9);
        reply.body = text.substr(end + 4);
    }
    return reply;
}

WebViewer::WebViewer(int port) : m_client(port)
{
    m_client.send("GET /api/v1/events HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port) + "\r\n\r\n");
}

std::string WebViewer::wait_for(const std::string& event_member)
{
    const auto deadline = std::chrono::steady_clock::now() + Client::kDefaultWait;
    while (std::chrono::steady_clock::now() < deadline) {
        const std::string line = m_client.read_line();
        if (line.empty()) {
            break;
        }
        m_received += line;
        if (line.find(event_member) != std::string::npos) {
            return line;
        }
    }
    return {};
}

} // namespace orvan_test
