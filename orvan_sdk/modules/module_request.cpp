#include "module_request.h"

#include <system_error>
#include <utility>

namespace HaldeElec::Orvan {
namespace {

constexpr const char* kOwnAddress = "127.0.0.1";

std::string request(Scpi_Orvanx& orvanx, const std::string& address, int port, std::string_view command)
{
    return orvanx.SendSCPIOrvanX(command.data(), static_cast<int>(command.size()), address, port);
}

} // namespace

std::string request_module(Scpi_Orvanx& orvanx, int channel, std::string_view command)
{
    if (channel < 1 || channel > kMaxChannels) {
        return "-ERR Unable to connect";
    }
    const int index = channel - 1;
    std::string reply =
        request(orvanx, orvanx.m_orvanXIp[index], static_cast<int>(orvanx.m_OrvanXport[index]), command);
    count_request(channel, reply);
    return reply;
}

std::future<std::string> start_request(Scpi_Orvanx& orvanx, int channel, std::string command)
{
    const auto send = [&orvanx, channel, command = std::move(command)] {
        return request_module(orvanx, channel, command);
    };
    try {
        return std::async(std::launch::async, send);
    } catch (const std::system_error&) {
        std::promise<std::string> made;
        made.set_value(send());
        return made.get_future();
    }
}

ModuleRequests::ModuleRequests(Scpi_Orvanx& orvanx, const std::string& command)
    : m_count(static_cast<size_t>(orvanx.getNumberofChannels())),
      m_pending(std::make_unique<Pending[]>(m_count))
{
    int index = 0;
    for (Pending& module : *this) {
        module = {index, start_request(orvanx, index + 1, command)};
        ++index;
    }
}

std::string request_own_server(Scpi_Orvanx& orvanx, int port, std::string_view command)
{
    return request(orvanx, kOwnAddress, port, command);
}

} // namespace HaldeElec::Orvan
