#include "sandbox_fixture.h"

#include <cstdlib>

#include <sys/mman.h>
#include <unistd.h>

namespace sandbox_test {

namespace fs = std::filesystem;
using namespace orvan_sandbox;

TemporaryDirectory::TemporaryDirectory(const fs::path& parent)
{
    std::string name = (parent / "orvan-test-XXXXXX").string();
    if (mkdtemp(name.data()) != nullptr) {
        m_path = name;
    }
}

TemporaryDirectory::~TemporaryDirectory()
{
    std::error_code code;
    fs::remove_all(m_path, code);
}

std::string shell(Sandbox& sandbox, Role role, const std::string& text)
{
    const orvan_common::UniqueFd output(::memfd_create("output", MFD_CLOEXEC));
    Command command;
    command.argv = {"sh", "-c", text};
    command.output = output.get();
    command.error = output.get();
    const Result<int> status = sandbox.run(role, command);
    if (!status) {
        return status.error().text();
    }
    std::string result(1 << 16, '\0');
    const ssize_t count = ::pread(output.get(), result.data(), result.size(), 0);
    result.resize(count > 0 ? static_cast<size_t>(count) : 0);
    return result;
}

} // namespace sandbox_test
