#include <gtest/gtest.h>

#include "guard/authority.h"
#include "guard/host_names.h"

using namespace orvan_web;

namespace {

std::string text(const std::optional<Authority>& authority)
{
    if (!authority) {
        return "none";
    }
    return authority->host + (authority->port ? " " + std::to_string(*authority->port) : "");
}

} // namespace

TEST(Authority, IsReadInAllItsForms)
{
    const std::pair<const char*, const char*> table[] = {
        {"10.0.0.2", "10.0.0.2"},
        {"10.0.0.2:8080", "10.0.0.2 8080"},
        {"OVX-1.Local", "ovx-1.local"},
        {"ovx-1.local.", "ovx-1.local"},
        {"ovx-1.local.:80", "ovx-1.local 80"},
        {"my_host", "my_host"},
        {"localhost:", "localhost"},
        {"localhost:65535", "localhost 65535"},
        {"[::1]", "::1"},
        {"[::1]:80", "::1 80"},
        {"[FE80:0:0::1]:80", "fe80::1 80"},
        {"[fe80::1%25eth0]", "fe80::1"},
        {"[::ffff:10.0.0.2]", "::ffff:10.0.0.2"},
    };
    for (const auto& [given, expected] : table) {
        EXPECT_EQ(text(parse_authority(given)), expected) << given;
    }
}

TEST(Authority, IsNothingElse)
{
    for (const char* given :
         {"",          ":",        ":80",     ".",          "a b",      " a",   "a ",   "a,b",
          "user@host", "http://a", "a/b",     "a?b",        "a#b",      "a\\b", "a:b",  "a:-1",
          "a:+1",      "a: 1",     "a:65536", "a:80:80",    "a:0x50",   "::1",  "[::1", "[::1]80",
          "[::1]:x",   "[]",       "[a]",     "[10.0.0.2]", "\xc3\xa4", "a\tb", "a%41"}) {
        EXPECT_EQ(text(parse_authority(given)), "none") << given;
    }
    EXPECT_EQ(text(parse_authority(std::string_view("a\0b", 3))), "none");
    EXPECT_EQ(text(parse_authority(std::string(300, 'a'))), "none");
}

TEST(Origin, IsSchemeAndAuthority)
{
    const auto origin = parse_origin("https://ovx-1.local:8443");
    ASSERT_TRUE(origin);
    EXPECT_EQ(origin->scheme, "https");
    EXPECT_EQ(text(origin->authority), "ovx-1.local 8443");
    for (const char* given :
         {"", "null", "http://", "http:/a", "ftp://a", "file://", "HTTP://a", "http://a/", "http://a/b",
          "http://a, http://b", "http://u@a", " http://a", "chrome-extension://a"}) {
        EXPECT_FALSE(parse_origin(given)) << given;
    }
}

TEST(Origin, IsThePagesOwnIfHostAndPortAreTheSame)
{
    struct Row {
        const char* origin;
        const char* host;
        bool same;
    };
    const Row table[] = {
        {"http://a", "a", true},
        {"http://a:80", "a", true},
        {"http://a", "a:80", true},
        {"http://A", "a.", true},
        {"https://a", "a", true},
        {"https://a", "a:443", true},
        {"http://[::1]:8080", "[0::1]:8080", true},
        {"https://a", "a:80", false},
        {"http://a:8080", "a", false},
        {"http://a", "a:8080", false},
        {"http://b", "a", false},
        {"http://a.evil", "a", false},
        {"http://evil.a", "a", false},
    };
    for (const Row& row : table) {
        EXPECT_EQ(same_origin(*parse_origin(row.origin), *parse_authority(row.host)), row.same)
            << row.origin << ' ' << row.host;
    }
}

TEST(HostNames, AreThoseOfTheMachineAndThoseOfTheOptions)
{
    std::string name = "ovx-1.lab.example";
    const HostNames::Machine machine{[&] { return name; },
                                     [] {
                                         return std::vector<std::string>{"10.0.0.2", "fe80::1"};
                                     }};
    const HostNames names({"Bench.Example", "fd00:0::5", "172.16.0.9"}, machine);
    for (const char* host : {"localhost", "127.0.0.1", "::1", "10.0.0.2", "fe80::1", "ovx-1.lab.example",
                             "ovx-1", "ovx-1.local", "bench.example", "fd00::5", "172.16.0.9", "192.0.2.1"}) {
        EXPECT_TRUE(names.allows(host, "192.0.2.1")) << host;
    }
    for (const char* host :
         {"", "evil.example", "10.0.0.3", "fe80::2", "ovx-2", "ovx-1.lab", "ovx-1.lab.example.evil", "local",
          ".local", "localhost.evil", "127.0.0.2", "2130706433"}) {
        EXPECT_FALSE(names.allows(host, "192.0.2.1")) << host;
    }
    name = "renamed";
    EXPECT_TRUE(names.allows("renamed.local", ""));
    EXPECT_FALSE(names.allows("ovx-1", ""));
    EXPECT_TRUE(names.allows("renamed-2.local", "")) << "another machine has the name, too";
    EXPECT_TRUE(names.allows("renamed-17.local", ""));
    for (const char* host :
         {"renamed-.local", "renamed-x.local", "renamed-2x.local", "renamed2.local", "renamed-2",
          "renamed-2.local.evil", "renamed.evil.local", "renamed.loca", "rename.local"}) {
        EXPECT_FALSE(names.allows(host, "")) << host;
    }
    name = "";
    EXPECT_FALSE(names.allows("", ""));
}

TEST(HostNames, OfThisMachineAreItsOwn)
{
    const auto machine = HostNames::this_machine();
    EXPECT_FALSE(machine.host_name().empty());
    const auto all = machine.addresses();
    EXPECT_NE(std::find(all.begin(), all.end(), "127.0.0.1"), all.end());
}
