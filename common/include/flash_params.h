/**
 * The identification rows: the text view of an instrument for the maintenance protocol.
 */
#ifndef ORVAN_FLASH_PARAMS_H
#define ORVAN_FLASH_PARAMS_H

#include <cstddef>

namespace HaldeElec::Orvan {

/** A row is a letter followed by a text of at most FP_MAX_DATA_LEN bytes, zero-padded. A text of that length
 *  has no terminator. */
inline constexpr size_t FP_MAX_LINE = 17;
inline constexpr size_t FP_MAX_ENTRY_LEN = 32;
inline constexpr size_t FP_MAX_DATA_LEN = 31;

inline constexpr int FLASH_SUCCESS = 0;
inline constexpr int FLASH_FAILED = 1;

// In the order of the rows; the last row has no letter and no text.
inline constexpr char FLASH_IPADDR = 'A';
inline constexpr char FLASH_MASK = 'N';
inline constexpr char FLASH_MAC = 'E';
inline constexpr char FLASH_GATEWAY = 'G';
inline constexpr char FLASH_DHCPSTAT = 'B'; /**< "ON" or "OFF" */
inline constexpr char FLASH_HOSTNAME = 'H';
inline constexpr char FLASH_MANUFNAME = 'D';
inline constexpr char FLASH_MODELNAME = 'I';
inline constexpr char FLASH_SERIALNUMBER = 'S';
inline constexpr char FLASH_CSCIVER = 'F'; /**< of this software */
inline constexpr char FLASH_OPTION = 'O';  /**< the option text */
inline constexpr char FLASH_CALIBDATE = 'C';
inline constexpr char FLASH_SCPI_PORT = 'W';
inline constexpr char FLASH_HWVERSION = 'Y'; /**< one character */
inline constexpr char FLASH_FPGAVER = 'V';
inline constexpr char FLASH_PLDVER = 'P';

/** The letters of the rows; its terminator is the last row's. */
inline constexpr char flash_ids[FP_MAX_LINE] = "ANEGBHDISFOCWYVP";

// Letters without a row.
inline constexpr char FLASH_MEMORYSIZE = 'M';
inline constexpr char FLASH_SCPIVER = 'Q';
inline constexpr char FLASH_REMINTF = 'R';
inline constexpr char FLASH_ACTIV_IF = 'X';
inline constexpr char FLASH_CHAINPOS = 'Z';

} // namespace HaldeElec::Orvan

#endif
