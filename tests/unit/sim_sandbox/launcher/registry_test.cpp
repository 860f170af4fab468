#include <cerrno>
#include <cstdlib>
#include <fstream>

#include <unistd.h>

#include "instance_record.h"
#include "registry.h"
#include "sandbox_fixture.h"
#include "state_lock.h"

namespace fs = std::filesystem;
using namespace orvan_launcher;
using sandbox_test::TemporaryDirectory;

namespace {

class RegistryTest : public ::testing::Test {
protected:
    void SetUp() override { ::setenv("XDG_RUNTIME_DIR", m_folder.path().c_str(), 1); }
    fs::path registry_folder() const { return m_folder.path() / ("orvan-sim-" + std::to_string(::getuid())); }
    fs::path make_state(const std::string& name) const
    {
        fs::create_directories(m_folder.path() / name / "run");
        return m_folder.path() / name;
    }
    TemporaryDirectory m_folder;
};

InstanceRecord a_record()
{
    InstanceRecord record;
    record.launcher = 11;
    record.init = 12;
    record.model = "OVX3654B";
    record.channels = 4;
    record.modules = 3;
    record.scpi_port = 5025;
    record.hislip_port = 4880;
    record.http_port = 8080;
    record.maintenance_port = 7502;
    record.temporary = true;
    record.environment = {{"PATH", "/a:/b \"c\""}, {"ORVAN_SANDBOX", "4026532527"}};
    record.networks = {{"controller", "/proc/12/fd/4"}, {"lan", "/proc/12/fd/5"}};
    return record;
}

} // namespace

using InstanceRecordFile = RegistryTest;

TEST_F(InstanceRecordFile, ReadsBackAsWritten)
{
    const fs::path state = make_state("state");
    ASSERT_TRUE(write_record(state, a_record()));
    const auto record = read_record(state);
    ASSERT_TRUE(record);
    const InstanceRecord expected = a_record();
    EXPECT_EQ(record->launcher, expected.launcher);
    EXPECT_EQ(record->init, expected.init);
    EXPECT_EQ(record->model, expected.model);
    EXPECT_EQ(record->channels, expected.channels);
    EXPECT_EQ(record->modules, expected.modules);
    EXPECT_EQ(record->scpi_port, expected.scpi_port);
    EXPECT_EQ(record->hislip_port, expected.hislip_port);
    EXPECT_EQ(record->http_port, expected.http_port);
    EXPECT_EQ(record->maintenance_port, expected.maintenance_port);
    EXPECT_EQ(record->temporary, expected.temporary);
    EXPECT_EQ(record->environment, expected.environment);
    EXPECT_EQ(record->networks, expected.networks);
}

TEST_F(InstanceRecordFile, MissingOrDamagedFileIsNoRecord)
{
    const fs::path state = make_state("state");
    EXPECT_FALSE(read_record(state));
    for (const char* text : {"", "{", "[]", "{\"model\": \"OVX3654B\"}", "{\"model\": 3, \"init\": 1}"}) {
        std::ofstream(state / "run/instance.json") << text;
        EXPECT_FALSE(read_record(state)) << text;
    }
    EXPECT_FALSE(write_record(m_folder.path() / "none", a_record()));
}

using StateLock = RegistryTest;

TEST_F(StateLock, OneHolderAtATimeAndItsDeathReleasesIt)
{
    const fs::path state = make_state("state");
    EXPECT_FALSE(is_running(state));
    {
        const auto lock = lock_state(state);
        ASSERT_TRUE(lock);
        EXPECT_TRUE(is_running(state));
        EXPECT_FALSE(lock_state(state));
        EXPECT_EQ(errno, EWOULDBLOCK);
    }
    EXPECT_FALSE(is_running(state));
    EXPECT_FALSE(is_running(m_folder.path() / "none"));
}

using InstanceRegistry = RegistryTest;

TEST_F(InstanceRegistry, ListsOnlyRunningInstances)
{
    const auto registry = Registry::open();
    ASSERT_TRUE(registry.ok());
    const fs::path state = make_state("state");
    auto lock = lock_state(state);
    ASSERT_TRUE(registry.value().add(state));
    EXPECT_EQ(registry.value().running(), std::vector<fs::path>{state});
    lock.reset();
    EXPECT_TRUE(registry.value().running().empty());
    registry.value().remove();
    EXPECT_FALSE(fs::exists(registry_folder()));
}

TEST_F(InstanceRegistry, FolderIsPrivateToItsUser)
{
    const auto registry = Registry::open();
    ASSERT_TRUE(registry.value().add(make_state("state")));
    EXPECT_EQ(fs::status(registry_folder()).permissions(), fs::perms(0700));
    registry.value().remove();
    std::ofstream(registry_folder()) << "not a folder";
    EXPECT_EQ(Registry::open().error().text(), "opening the registry " + registry_folder().string() +
                                                   ": it is not a folder of this user (remove it)");
}

TEST_F(InstanceRegistry, SweepRemovesOnlyWhatIsDeadAndTemporary)
{
    const auto registry = Registry::open();
    const fs::path dead = make_state(std::string(kTemporaryPrefix) + "dead");
    const fs::path kept = make_state("kept");
    const fs::path alive = make_state(std::string(kTemporaryPrefix) + "alive");
    const fs::path misnamed = make_state("misnamed");
    InstanceRecord record = a_record();
    for (const fs::path& state : {dead, alive, misnamed}) {
        ASSERT_TRUE(write_record(state, record));
    }
    record.temporary = false;
    ASSERT_TRUE(write_record(kept, record));
    const auto lock = lock_state(alive);
    ASSERT_TRUE(registry.value().add(alive));
    int number = 0;
    for (const fs::path& state : {dead, kept, misnamed, m_folder.path() / "gone"}) {
        fs::create_directory_symlink(state, registry_folder() / ("dead-" + std::to_string(++number)));
    }
    registry.value().sweep(m_folder.path() / "own");
    EXPECT_FALSE(fs::exists(dead));
    EXPECT_TRUE(fs::exists(kept));
    EXPECT_TRUE(fs::exists(alive));
    EXPECT_TRUE(fs::exists(misnamed));
    EXPECT_EQ(std::distance(fs::directory_iterator(registry_folder()), fs::directory_iterator()), 1);
}

TEST_F(InstanceRegistry, SweepRemovesLinksToAStateAndKeepsTheState)
{
    const auto registry = Registry::open();
    const fs::path own = make_state(std::string(kTemporaryPrefix) + "named-by-its-user");
    ASSERT_TRUE(write_record(own, a_record()));
    const auto lock = lock_state(own);
    ASSERT_TRUE(registry.value().add(own));
    ASSERT_EQ(registry.value().running().size(), 1u);
    registry.value().sweep(own);
    EXPECT_TRUE(registry.value().running().empty());
    EXPECT_TRUE(fs::exists(own));
}
