#include "program_text.h"
#include "scpi/extensions.h"

void SCPI_FramerReset(scpi_framer_t* framer)
{
    *framer = {};
}

size_t SCPI_FramerScan(scpi_framer_t* framer, const char* data, size_t len)
{
    const char* p = data;
    for (;;) {
        switch (scpi::scan_program_text(*framer, p, data + len)) {
        case scpi::TextStop::kEnd:
            return 0;
        case scpi::TextStop::kMessageEnd:
            *framer = {};
            return static_cast<size_t>(p - data) + 1;
        case scpi::TextStop::kUnitEnd:
            *framer = {};
            ++p;
            break;
        case scpi::TextStop::kBlockEnd:
            break;
        }
    }
}
