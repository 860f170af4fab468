// A program that uses only the installed library.
#include <cstdio>
#include <memory>

#include <orvan_sdk/IDeviceConnectionHandler.h>
#include <orvan_sdk/Portable/OrvanConnPortable.h>
#include <orvan_sdk/orvan_sdk.h>

using namespace HaldeElec::Orvan;

namespace {

// A custom platform, through the base class's virtual functions.
class Handler : public IDeviceConnectionHandler {
public:
    void enableMUX() override {}
    void disableMUX() override {}
};

// The types are the same inside and outside the library.
bool distinguishes_types()
{
    const std::unique_ptr<IDeviceConnectionHandler> own = std::make_unique<Handler>();
    const std::unique_ptr<IDeviceConnectionHandler> portable = std::make_unique<OrvanConnPortable>();
    return dynamic_cast<OrvanConnPortable*>(own.get()) == nullptr &&
           dynamic_cast<OrvanConnPortable*>(portable.get()) != nullptr;
}

} // namespace

int main()
{
    Scpi_Orvanx* modules = Scpi_Orvanx::getInstance();
    modules->setSelectedChannel(3);
    std::printf("selected channel %d\n", modules->getSelectedChannel());
    return modules->getSelectedChannel() == 3 && distinguishes_types() ? 0 : 1;
}
