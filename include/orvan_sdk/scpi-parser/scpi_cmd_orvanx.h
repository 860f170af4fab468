/**
 * The row handlers of the command table. Each runs inside SCPI_Input and returns SCPI_RES_OK or
 * SCPI_RES_ERR. If a handler fails without queuing an error, the parser queues -200.
 *
 * The device and the module service are those of the user record (userContext_t). Common errors:
 *  - the reader's own error with the text "Param 0" or "Param 1" for a missing or bad parameter
 *  - -223 "copy data out failed" for a reply that was not accepted; an empty text never is
 *  - -310 "Target is not initialized" without a user record
 *  - -360 "Module communication error" when a module cannot be reached or answers "-ERR"
 */
#ifndef ORVAN_SDK_SCPI_CMD_ORVANX_H
#define ORVAN_SDK_SCPI_CMD_ORVANX_H

#include "orvan_sdk/orvan_api.h"
#include <scpi/types.h>

/**
 * Handler of every forwarded row: adds the sub-command to the open run, and sends the run to the selected
 * channel's module if the next sub-command of the line is not forwarded.
 *
 * The module's reply becomes a result, even if it contains "-ERR": a module that fails or refuses is not a
 * failure of this handler. Its own errors:
 *  - -230 no module service in the user record
 *  - -310 no memory for the run
 *  - -223 the run does not fit, has more than 64 sub-commands, or its result was not accepted
 * All but the last lose the run: none of its sub-commands reaches the module.
 */
ORVAN_API scpi_result_t OrvanX_cmdBypass(scpi_t* context);

/**
 * Selects the channel that forwarded commands go to, CH1 to CH4 or 1 to 4, and notes it in the record of
 * every installed channel. A channel that is not installed is accepted: its module then cannot be reached.
 */
ORVAN_API scpi_result_t OrvanX_setChannel(scpi_t* context);
/** The selected channel's number; the records are corrected as well. */
ORVAN_API scpi_result_t OrvanX_getChannel(scpi_t* context);

/**
 * The controller's LAN settings and identity. Values are mirrored in the selected channel's record.
 *
 * Set handlers succeed whatever the device returns, and without a device: a refused value is still mirrored,
 * and the client sees the refusal only in a query. Unless noted, get handlers fail without queuing an error
 * when the device fails.
 */
ORVAN_API scpi_result_t OrvanX_setDHCP(scpi_t* context);
ORVAN_API scpi_result_t OrvanX_getDHCP(scpi_t* context); /**< ON or OFF */
ORVAN_API scpi_result_t OrvanX_setIpAddress(scpi_t* context);
ORVAN_API scpi_result_t OrvanX_getIpAddress(scpi_t* context);
ORVAN_API scpi_result_t OrvanX_setNetworkMask(scpi_t* context);
/** Replies with what the device left even if it failed, so -223 if that is empty. */
ORVAN_API scpi_result_t OrvanX_getNetworkMask(scpi_t* context);
ORVAN_API scpi_result_t Orvan_setDefaultGateway(scpi_t* context);
ORVAN_API scpi_result_t Orvan_getDefaultGateway(scpi_t* context);
ORVAN_API scpi_result_t OrvanX_setHostname(scpi_t* context);
ORVAN_API scpi_result_t OrvanX_getHostname(scpi_t* context);
/** The number's low 16 bits; the device REBOOTS for it. Mirrored only with a device. */
ORVAN_API scpi_result_t OrvanX_setPortNumber(scpi_t* context);
/** A port of 0 is a failure, whatever the device returns. */
ORVAN_API scpi_result_t OrvanX_getPortNumber(scpi_t* context);
/** Name server 1 or 2, then its address; not mirrored. */
ORVAN_API scpi_result_t OrvanX_setNetworkDNS(scpi_t* context);
/** Takes the server's number, 1 or 2. */
ORVAN_API scpi_result_t OrvanX_getNetworkDNS(scpi_t* context);

ORVAN_API scpi_result_t OrvanX_getModel(scpi_t* context);
ORVAN_API scpi_result_t OrvanX_getSerial(scpi_t* context);
ORVAN_API scpi_result_t OrvanX_getHardwareVersion(scpi_t* context); /**< one character */
/** A failing device shows only as the empty text, -223. */
ORVAN_API scpi_result_t OrvanX_getFirmware(scpi_t* context);
ORVAN_API scpi_result_t OrvanX_getFPGAVersion(scpi_t* context);
ORVAN_API scpi_result_t OrvanX_getBatteryChargeLevel(scpi_t* context); /**< percent */
/** As OrvanX_getFirmware. */
ORVAN_API scpi_result_t OrvanX_getOptions(scpi_t* context);

/** "<model>,<MHz>,<channels>,<usb or spi>,<product>,<vendor>,<platform>", both numbers in hexadecimal. Fails
 *  without queuing an error when the model is unknown. */
ORVAN_API scpi_result_t OrvanX_getDeviceArch(scpi_t* context);
/** The device's option table as a definite length block; -230 "Failed retrieving options table", -223 "copy
 * binay data out failed". */
ORVAN_API scpi_result_t OrvanX_getDeviceOptTable(scpi_t* context);

/**
 * Values that concern both the selected channel's module and the controller's routing: they go to the module
 * first, then to the record, then to the device. A module failure is -360 and ends the command; a device
 * failure queues no error of its own, and the module is not switched back.
 */
ORVAN_API scpi_result_t OrvanX_setOutputOnOff(scpi_t* context);
/** Queries the module and sets the controller's RF output to its answer: 1 or 0. */
ORVAN_API scpi_result_t OrvanX_getOutputOnOff(scpi_t* context);
/** INTernal or EXTernal; the module gets the long form. */
ORVAN_API scpi_result_t OrvanX_setAMTriggerSource(scpi_t* context);
ORVAN_API scpi_result_t OrvanX_setFMTriggerSource(scpi_t* context);
/** EXTernal, BUS, TIMer or SPI. Not sent to the device. */
ORVAN_API scpi_result_t OrvanX_setTriggerSource(scpi_t* context);

/** Channels that channel 1 triggers: NONE or 0, 2, 3, 4, ALL. Sent to the device but to no module; not
 * mirrored. Fails without queuing an error when the device does, or without a device or a service. */
ORVAN_API scpi_result_t OrvanX_setTriggerCoupling(scpi_t* context);
/** NONE, 2, 3, 4 or ALL; -220 "trigger source coupling not set" for any other value. */
ORVAN_API scpi_result_t OrvanX_getTriggerCoupling(scpi_t* context);

/** Modulations of the model, as a mask: written to the selected channel's record only. */
ORVAN_API scpi_result_t OrvanX_setModulCfg(scpi_t* context);

/** Firmware version of the selected channel's module. */
ORVAN_API scpi_result_t OrvanX_getSlave(scpi_t* context);

/**
 * Stored setups (Scpi_Orvanx::database_store and the functions after it). Setups 1 to 5 are the user's; 0 is
 * the factory's and can only be recalled. Errors: -108 "writing setup <n> not allowed" ("erasing",
 * "recalling"),
 * -200 "Failed to save configuration" ("delete", "recall"). Without a service nothing is done, which is a
 * success.
 */
ORVAN_API scpi_result_t OrvanX_DBStore(scpi_t* context);
ORVAN_API scpi_result_t OrvanX_DBClear(scpi_t* context);
ORVAN_API scpi_result_t OrvanX_DBRecall(scpi_t* context);

/** Sets which setup is loaded at power-up, in the stored settings; -256 "DB files not found" unless every
 * channel has a file of it. */
ORVAN_API scpi_result_t OrvanX_setPowerupDB(scpi_t* context);
ORVAN_API scpi_result_t OrvanX_getPowerupDB(scpi_t* context);

/**
 * Resets all modules at once, then loads the power-up setup into records and modules and makes the
 * controller's RF outputs follow it. The channel selection survives. Errors: -310; -360 "Module <n>
 * communication error" for the first module that fails; then nothing is loaded, though the others have been
 * reset. Without a device or a service it fails without queuing an error.
 */
ORVAN_API scpi_result_t OrvanX_Reset(scpi_t* context);

/** Whether a stored setup keeps its RF output on: AUTO, or initially MANUAL. */
ORVAN_API scpi_result_t OrvanX_setPwrOnResore(scpi_t* context);
ORVAN_API scpi_result_t OrvanX_getPwrOnResore(scpi_t* context);

/** The fans' mode, AUTO or FIXED. Fails without queuing an error when there is no device. */
ORVAN_API scpi_result_t OrvanX_setFanMode(scpi_t* context);
ORVAN_API scpi_result_t OrvanX_getFanMode(scpi_t* context);

/**
 * Updates all modules with the image in the message's arbitrary block: stores it in the upgrade folder,
 * always under the same name, and sends it (Scpi_Orvanx::sendSoftwareUpdate and
 * sendFPGAUpdateSCPICommandtoOrvanX). Returns when the last module has answered. Modules are not restarted.
 *
 * Errors: the reader's own with the text "Parsing failed" without a block; an empty block leaves the file
 * unchanged and fails without queuing an error, as does a file that cannot be stored; -223 "Failed to update
 * software" ("fpga"). Without a service the image is only stored.
 */
ORVAN_API scpi_result_t OrvanX_softwareUpdate(scpi_t* context);
ORVAN_API scpi_result_t OrvanX_fpgaUpdate(scpi_t* context);

/**
 * For the instrument's own user interface: updates all modules with the software that is in the upgrade
 * folder, restarts them and REBOOTS the controller, even if the update fails (-223 "Failed to
 * update software"). Without a service it fails without queuing an error and does nothing.
 */
ORVAN_API scpi_result_t OrvanX_internalSWUpdate(scpi_t* context);

/**
 * Starts the tests on request of the whole instrument: "*TST" to every installed channel's module, all at
 * once, and meanwhile the controller's own (BITManager::runIBITs). Returns when the slowest has answered. A
 * module that cannot be reached or refuses is only logged; without a device or a service nothing
 * is done.
 */
ORVAN_API scpi_result_t OrvanX_runRPIbit(scpi_t* context);

/**
 * The controller's failed tests, "<PBIT, CBIT or IBIT>,<test>,Fail,<error code>;" each, and "<number>
 * Failures". Starts no test. A report that reaches 1024 bytes ends with ";Buffer_Overflow", truncated at
 * the end of the buffer.
 */
ORVAN_API scpi_result_t OrvanX_bitRPResults(scpi_t* context);

/**
 * A module's own report; takes the module's number, from 1. Errors: -400 "Module number <n> not supported"
 * above the installed channels, -360. Number 0 counts as a module that cannot be reached.
 */
ORVAN_API scpi_result_t OrvanX_getModuleBitResult(scpi_t* context);

#endif
