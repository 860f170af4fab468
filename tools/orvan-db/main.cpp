#include "command_line.h"
#include "end_signals.h"
#include <dataorvan.h>

int main(int argc, char** argv)
{
    return orvan_db::run(argc, argv, g_shmemName, orvan_tools::block_end_signals());
}
