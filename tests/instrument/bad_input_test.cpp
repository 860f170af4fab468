// Misbehaving clients: after each of them the next good client is answered.
#include <random>
#include <thread>

#include <gtest/gtest.h>

#include "instrument.h"

using namespace orvan_test;

namespace {

// A sanitizer build takes several times the second that an instrument needs to answer.
constexpr std::chrono::seconds kSoon{5};

void expect_answers(const Instrument& instrument)
{
    EXPECT_EQ(instrument.client().ask("*IDN?", kSoon),
              "Halde Electronics Ltd.,OVX3654B,100001,1.19.145;+OK\r\n");
    EXPECT_EQ(instrument.client().ask(":FREQ 4e9;:FREQ?", kSoon), "4000000000;+OK\r\n");
}

} // namespace

TEST(BadInput, RandomBytesDoNoHarm)
{
    ORVAN_NEEDS_SANDBOX();
    Instrument instrument;
    std::mt19937 random(20);
    for (int round = 0; round < 20; ++round) {
        std::string noise(5000, '\0');
        for (char& byte : noise) {
            byte = static_cast<char>(random());
        }
        Client client = instrument.client();
        client.send(noise);
        client.finish_sending();
        while (!client.read_line(kSoon).empty()) {
        }
    }
    expect_answers(instrument);
}

TEST(BadInput, ALineOfTenMegabytesIsRefusedOnceAndTheNextWorks)
{
    ORVAN_NEEDS_SANDBOX();
    Instrument instrument;
    Client client = instrument.client();
    ASSERT_TRUE(client.send(std::string(10'000'000, 'A')));
    EXPECT_EQ(client.read_line(kSoon), "-ERR -363, \"Input buffer overrun\";+OK\r\n");
    expect_answers(instrument);
    ASSERT_TRUE(client.send("\n*IDN?\n"));
    EXPECT_EQ(client.read_line(kSoon), "Halde Electronics Ltd.,OVX3654B,100001,1.19.145;+OK\r\n");
}

TEST(BadInput, SeventySubCommandsAreRefusedAndTheNextLineWorks)
{
    ORVAN_NEEDS_SANDBOX();
    Instrument instrument;
    Client client = instrument.client();
    std::string line;
    for (int i = 0; i < 70; ++i) {
        line += ":POW 1;";
    }
    const std::string reply = client.ask(line, kSoon);
    EXPECT_EQ(reply.rfind("-ERR -223, \"Too much data\"", 0), 0U) << reply;
    EXPECT_EQ(client.ask(":FREQ 1e9;:FREQ?", kSoon), "1000000000;+OK\r\n");
}

TEST(BadInput, NulBytesInALineAreAnError)
{
    ORVAN_NEEDS_SANDBOX();
    Instrument instrument;
    Client client = instrument.client();
    using namespace std::string_literals;
    EXPECT_NE(client.ask(":FR\0EQ?"s, kSoon).find("-ERR"), std::string::npos);
    EXPECT_EQ(client.ask(":FREQ 1e9;:FREQ?", kSoon), "1000000000;+OK\r\n");
    expect_answers(instrument);
}

TEST(BadInput, AWrongBlockLengthBlocksOnlyItsOwnClient)
{
    ORVAN_NEEDS_SANDBOX();
    Instrument instrument;
    Client waiting = instrument.client();
    waiting.send(":LIST:DATA #6999999abc\n");
    EXPECT_TRUE(waiting.stays_silent(std::chrono::milliseconds(200)));
    expect_answers(instrument);
    Client greedy = instrument.client();
    greedy.send(":LIST:DATA #9999999999abc\n" + std::string(4'000'000, 'x'));
    EXPECT_EQ(greedy.read_line(kSoon), "-ERR -363, \"Input buffer overrun\";+OK\r\n");
    expect_answers(instrument);
}

TEST(BadInput, TwoHundredClientsAtOnceAreServedAndSoIsTheNext)
{
    ORVAN_NEEDS_SANDBOX();
    Instrument instrument;
    std::vector<Client> clients;
    for (int i = 0; i < 200; ++i) {
        clients.push_back(instrument.client());
    }
    for (Client& client : clients) {
        client.send("*IDN?\n");
    }
    for (Client& client : clients) {
        EXPECT_EQ(client.read_line(), "Halde Electronics Ltd.,OVX3654B,100001,1.19.145;+OK\r\n");
    }
    expect_answers(instrument);
}

TEST(BadInput, ClientsThatConnectAndVanishLeakNoDescriptor)
{
    ORVAN_NEEDS_SANDBOX();
    Instrument instrument;
    const auto descriptors = [&] {
        return std::stoi(
            instrument.exec("controller", {"sh", "-c", "ls /proc/$(pgrep -f '/[o]rvan-service ')/fd | wc -l"})
                .output);
    };
    expect_answers(instrument);
    // The temperature monitor may hold two more; a leak would leave hundreds.
    const int before = descriptors();
    for (int i = 0; i < 300; ++i) {
        Client client = instrument.client();
        if (i % 3 == 0) {
            client.send(":FREQ");
        }
        if (i % 2 == 0) {
            client.reset();
        }
    }
    expect_answers(instrument);
    const auto deadline = std::chrono::steady_clock::now() + kSoon;
    while (descriptors() > before && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    EXPECT_LE(descriptors(), before + 2);
}

TEST(BadInput, AClientThatDoesNotReadDoesNoHarm)
{
    ORVAN_NEEDS_SANDBOX();
    Instrument instrument;
    Client deaf = instrument.client();
    std::string many;
    for (int i = 0; i < 1000; ++i) {
        many += "*IDN?\n";
    }
    for (int i = 0; i < 20; ++i) {
        deaf.send(many);
    }
    expect_answers(instrument);
}
