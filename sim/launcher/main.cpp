#include "command_line.h"

int main(int argc, char** argv)
{
    return orvan_launcher::run_command_line(argc, argv);
}
