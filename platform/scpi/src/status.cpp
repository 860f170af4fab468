#include "status.h"

#include "scpi/error.h"
#include "scpi/ieee488.h"

namespace {

constexpr scpi_reg_val_t kSummaryBits = STB_QMA | STB_QES | STB_ESR | STB_SRQ | STB_OPS;

bool is_register(scpi_reg_name_t name)
{
    return name >= SCPI_REG_STB && name < SCPI_REG_COUNT;
}

/** The implemented bits of a register. */
scpi_reg_val_t register_mask(scpi_reg_name_t name)
{
    switch (name) {
    case SCPI_REG_STB:
        return static_cast<scpi_reg_val_t>(0xFF & ~kSummaryBits);
    case SCPI_REG_SRE:
        return 0xFF & ~STB_SRQ;
    case SCPI_REG_ESR:
    case SCPI_REG_ESE:
        return 0xFF;
    default:
        return 0x7FFF;
    }
}

/** Sets the event bits of the condition bits that have risen. */
void latch_events(scpi_t* context, scpi_reg_name_t event, scpi_reg_val_t before, scpi_reg_val_t after)
{
    scpi_reg_val_t& events = context->registers[event];
    events = static_cast<scpi_reg_val_t>(events | (after & ~before));
}

} // namespace

void scpi::update_status_byte(scpi_t* context)
{
    const scpi_reg_val_t* const reg = context->registers;
    unsigned status = reg[SCPI_REG_STB] & register_mask(SCPI_REG_STB);
    if (SCPI_ErrorCount(context) != 0) {
        status |= STB_QMA;
    }
    if ((reg[SCPI_REG_QUES] & reg[SCPI_REG_QUESE]) != 0) {
        status |= STB_QES;
    }
    if ((reg[SCPI_REG_ESR] & reg[SCPI_REG_ESE]) != 0) {
        status |= STB_ESR;
    }
    if ((reg[SCPI_REG_OPER] & reg[SCPI_REG_OPERE]) != 0) {
        status |= STB_OPS;
    }
    if ((status & reg[SCPI_REG_SRE]) != 0) {
        status |= STB_SRQ;
    }

    const bool rising = (status & STB_SRQ) != 0 && (reg[SCPI_REG_STB] & STB_SRQ) == 0;
    context->registers[SCPI_REG_STB] = static_cast<scpi_reg_val_t>(status);
    if (rising && context->interface != nullptr && context->interface->control != nullptr) {
        context->interface->control(context, SCPI_CTRL_SRQ, static_cast<scpi_reg_val_t>(status));
    }
}

scpi_reg_val_t SCPI_RegGet(const scpi_t* context, scpi_reg_name_t name)
{
    return is_register(name) ? context->registers[name] : scpi_reg_val_t{0};
}

void SCPI_RegSet(scpi_t* context, scpi_reg_name_t name, scpi_reg_val_t val)
{
    if (!is_register(name)) {
        return;
    }
    const scpi_reg_val_t before = context->registers[name];
    // The old summary is kept in the status byte so that update_status_byte can detect an edge.
    const unsigned kept = name == SCPI_REG_STB ? before & kSummaryBits : 0U;
    const scpi_reg_val_t after = static_cast<scpi_reg_val_t>((val & register_mask(name)) | kept);
    context->registers[name] = after;
    if (name == SCPI_REG_OPERC) {
        latch_events(context, SCPI_REG_OPER, before, after);
    } else if (name == SCPI_REG_QUESC) {
        latch_events(context, SCPI_REG_QUES, before, after);
    }
    scpi::update_status_byte(context);
}

void SCPI_RegSetBits(scpi_t* context, scpi_reg_name_t name, scpi_reg_val_t bits)
{
    SCPI_RegSet(context, name, static_cast<scpi_reg_val_t>(SCPI_RegGet(context, name) | bits));
}

void SCPI_RegClearBits(scpi_t* context, scpi_reg_name_t name, scpi_reg_val_t bits)
{
    SCPI_RegSet(context, name, static_cast<scpi_reg_val_t>(SCPI_RegGet(context, name) & ~bits));
}
