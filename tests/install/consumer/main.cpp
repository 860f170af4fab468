// A program that knows the library only as it is installed.
#include <orvan_sdk/orvan_sdk.h>

#include <cstdio>

int main()
{
    Scpi_Orvanx* modules = Scpi_Orvanx::getInstance();
    modules->setSelectedChannel(3);
    std::printf("selected channel %d\n", modules->getSelectedChannel());
    return modules->getSelectedChannel() == 3 ? 0 : 1;
}
