#include "command_line.h"
#include "end_signals.h"

int main(int argc, char** argv)
{
    return orvan_maint::run(argc, argv, orvan_tools::block_end_signals());
}
