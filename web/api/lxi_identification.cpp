#include "lxi_identification.h"

#include <vector>

namespace orvan_web {
namespace {

std::string escaped(std::string_view text)
{
    std::string result;
    for (const char c : text) {
        switch (c) {
        case '&':
            result += "&amp;";
            break;
        case '<':
            result += "&lt;";
            break;
        case '>':
            result += "&gt;";
            break;
        case '"':
            result += "&quot;";
            break;
        default:
            result += static_cast<unsigned char>(c) < ' ' ? ' ' : c; // XML has no other control characters
        }
    }
    return result;
}

std::string element(const char* name, std::string_view text)
{
    return "    <" + std::string(name) + '>' + escaped(text) + "</" + name + ">\n";
}

std::vector<std::string> resource_names(const cJSON* document)
{
    std::vector<std::string> names;
    const cJSON* entry = nullptr;
    cJSON_ArrayForEach(entry, cJSON_GetObjectItemCaseSensitive(document, "interfaces"))
    {
        names.push_back(string_member(entry, "address"));
    }
    return names;
}

// With the resource names of all protocols, and the settings of the network.
std::string lan_interface(const Instrument& instrument)
{
    const Network& network = instrument.network();
    const Json document = instrument.json();
    std::string text =
        "  <Interface xsi:type=\"NetworkInformation\" InterfaceType=\"LXI\" IPType=\"IPv4\">\n";
    for (const std::string& name : resource_names(document.get())) {
        text += element("InstrumentAddressString", name);
    }
    text += element("Hostname", instrument.identity().hostname);
    text += element("IPAddress", network.address);
    text += element("SubnetMask", network.mask);
    text += element("MACAddress", network.mac);
    text += element("Gateway", network.gateway);
    text += element("DHCPEnabled", network.dhcp ? "true" : "false");
    text += element("AutoIPEnabled", "false");
    return text + "  </Interface>\n";
}

std::string top(const char* name, std::string_view text)
{
    return "  <" + std::string(name) + '>' + escaped(text) + "</" + name + ">\n";
}

} // namespace

std::string lxi_identification(const Instrument& instrument, std::string_view host)
{
    const Identity& identity = instrument.identity();
    const std::string name = host.empty() ? instrument.network().address : std::string(host);
    const std::string address = "http://" + name + "/lxi/identification";
    std::string text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                       "<LXIDevice xmlns=\"http://www.lxistandard.org/InstrumentIdentification/1.0\"\n"
                       "    xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\">\n";
    text += top("Manufacturer", identity.manufacturer);
    text += top("Model", identity.model);
    text += top("SerialNumber", identity.serial);
    text += top("FirmwareRevision", identity.firmware);
    text +=
        top("ManufacturerDescription", identity.manufacturer + " " + identity.model + " signal generator");
    text += top("HomepageURL", "http://" + name + "/");
    text += top("IdentificationURL", address);
    text += lan_interface(instrument);
    text += top("LXIVersion", "1.5");
    return text + "</LXIDevice>\n";
}

} // namespace orvan_web
