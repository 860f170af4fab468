#include "header.h"
#include "program_text.h"
#include "scpi/error.h"
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

scpi_message_unit_t SCPI_CutUnit(const char* p, const char* end)
{
    const scpi::ProgramUnit cut = scpi::cut_program_unit(p, end);
    scpi_message_unit_t unit{};
    unit.begin = cut.begin;
    unit.end = cut.end;
    unit.next = cut.next;
    unit.fault = cut.fault;
    unit.block_open = cut.fault == SCPI_ERROR_INVALID_BLOCK_DATA;
    if (cut.begin != cut.end) {
        const scpi::HeaderScan header = scpi::scan_header(cut.begin, cut.end);
        unit.header_len = static_cast<size_t>(header.end - cut.begin);
        unit.path_len = header.path_len;
        unit.common = header.common;
        unit.absolute = header.absolute;
        unit.fault = header.fault != 0 ? header.fault : cut.fault;
    }
    return unit;
}
