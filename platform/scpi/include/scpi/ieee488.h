/**
 * Status registers (IEEE 488.2 11, SCPI-99 20) and the common commands (IEEE 488.2 10).
 */
#ifndef SCPI_IEEE488_H
#define SCPI_IEEE488_H

#include "types.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * A change of a register updates everything above it:
 *
 *   OPERC, QUESC   a rising bit sets the same bit in OPER, QUES
 *   OPER & OPERE   not 0: STB_OPS          QUES & QUESE  not 0: STB_QES
 *   ESR & ESE      not 0: STB_ESR          error queue   not empty: STB_QMA
 *   STB & SRE      not 0: STB_SRQ; when it rises, the `control` callback gets SCPI_CTRL_SRQ and the status
 * byte
 *
 * STB, SRE, ESR and ESE have 8 bits; bit 6 of SRE is always 0 (IEEE 488.2 11.3.2.3). The others have
 * 15 bits: bit 15 is always 0 (SCPI-99 20.1). A write to STB changes only the bits that are not summaries
 * listed here.
 */

/** 0 for an unknown register name. */
scpi_reg_val_t SCPI_RegGet(const scpi_t* context, scpi_reg_name_t name);
void SCPI_RegSet(scpi_t* context, scpi_reg_name_t name, scpi_reg_val_t val);
void SCPI_RegSetBits(scpi_t* context, scpi_reg_name_t name, scpi_reg_val_t bits);
void SCPI_RegClearBits(scpi_t* context, scpi_reg_name_t name, scpi_reg_val_t bits);

/** "*CLS": clears ESR, OPER, QUES and the error queue; enables and conditions stay. */
scpi_result_t SCPI_CoreCls(scpi_t* context);

/** "*ESE <0..255>", -222 past it. */
scpi_result_t SCPI_CoreEse(scpi_t* context);
scpi_result_t SCPI_CoreEseQ(scpi_t* context);

/** "*ESR?": reading clears it. */
scpi_result_t SCPI_CoreEsrQ(scpi_t* context);

/** "*IDN?": the four texts of the context as four results, "0" for one that is null or empty (10.14.3). */
scpi_result_t SCPI_CoreIdnQ(scpi_t* context);

/** "*OPC", "*OPC?", "*WAI": every command is complete when its handler returns. */
scpi_result_t SCPI_CoreOpc(scpi_t* context);
scpi_result_t SCPI_CoreOpcQ(scpi_t* context);
scpi_result_t SCPI_CoreWai(scpi_t* context);

/** "*RST": calls the `reset` callback and returns its result; SCPI_RES_OK when it is null. */
scpi_result_t SCPI_CoreRst(scpi_t* context);

/** "*SRE <0..255>", -222 past it. */
scpi_result_t SCPI_CoreSre(scpi_t* context);
scpi_result_t SCPI_CoreSreQ(scpi_t* context);

/** "*STB?": bit 6 is the master summary; reading clears nothing. */
scpi_result_t SCPI_CoreStbQ(scpi_t* context);

/** "*TST?": "0", as the library has no self-test. */
scpi_result_t SCPI_CoreTstQ(scpi_t* context);

#ifdef __cplusplus
}
#endif

#endif
