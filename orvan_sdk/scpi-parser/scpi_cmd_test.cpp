#include <cstdio>
#include <cstring>
#include <iterator>

#include <syslog.h>

#include "handler_shapes.h"
#include "modules/module_request.h"
#include "orvan_sdk/bit/bit_manager.h"
#include "orvan_sdk/scpi-parser/scpi_cmd_orvanx.h"
#include "orvan_sdk/scpi-parser/scpi_orvanx.h"
#include <scpi/scpi.h>

using namespace HaldeElec::Orvan;

namespace {

constexpr size_t kReportSize = 1024;
constexpr size_t kLineSize = 128;
constexpr size_t kTailSize = 32;

// By eTestStatus; the spellings are part of the report's format.
const char* const bitStatus[] = {"Pass", "Fail", "In_Progress", "Not_Perofrmed"};

const char* status_word(int status)
{
    return status >= 0 && status < std::ssize(bitStatus) ? bitStatus[status] : "Unknown";
}

// The failed tests, one per line, and their number. When the report is full, the current kind ends, and each
// later kind ends at its first failure, which is still counted.
void write_report(BITManager& manager, char (&report)[kReportSize])
{
    size_t position = 0;
    int failures = 0;
    for (const eBitType type : {PBIT, CBIT, IBIT}) {
        for (int number = 0; number < manager.getTestsNumber(type); ++number) {
            bitReport_t test{};
            if (!manager.getTestResult(type, number, test) || test.result != BIT_FAIL) {
                continue;
            }
            ++failures;
            char line[kLineSize];
            std::snprintf(line, sizeof line, "%s,%s,%s,%d;", manager.getBitTypeName(type), test.testName,
                          status_word(test.result), test.errorCode);
            const size_t length = std::strlen(line);
            if (position + length >= kReportSize) {
                std::strncat(report, ";Buffer_Overflow", kReportSize - 1 - std::strlen(report));
                position = kReportSize;
                break;
            }
            std::memcpy(report + position, line, length);
            position += length;
        }
    }
    char tail[kTailSize];
    std::snprintf(tail, sizeof tail, "%d Failures", failures);
    if (position + std::strlen(tail) < kReportSize) {
        std::strcpy(report + position, tail);
    } else {
        report[kReportSize - 1] = '\0';
    }
}

} // namespace

scpi_result_t OrvanX_runRPIbit(scpi_t* context)
{
    const Target target(context);
    if (!target.initialized) {
        return fail(context, __func__, SCPI_ERROR_SYSTEM, "Target is not initialized");
    }
    if (target.orvanx == nullptr || target.device == nullptr) {
        return SCPI_RES_OK;
    }

    const ModuleRequests requests(*target.orvanx, "*TST\r\n");
    BITManager::getInstance(kCbitPeriod)->runIBITs();

    for (auto& [index, pending] : requests) {
        const std::string reply = pending.get();
        if (!target.orvanx->checkOrvanReply(reply)) {
            ::syslog(LOG_ERR, "%s: module %d: %s\n", __func__, index, reply.c_str());
        }
    }
    return SCPI_RES_OK;
}

scpi_result_t OrvanX_bitRPResults(scpi_t* context)
{
    char report[kReportSize] = {};
    write_report(*BITManager::getInstance(kCbitPeriod), report);
    return result_of(reply_text(context, __func__, report));
}

scpi_result_t OrvanX_getModuleBitResult(scpi_t* context)
{
    uint32_t number = 0;
    if (!SCPI_ParamUInt32(context, &number, true)) {
        return missing_parameter(context, __func__);
    }
    const Target target(context);
    if (target.orvanx == nullptr) {
        return SCPI_RES_OK;
    }
    if (number > static_cast<uint32_t>(target.orvanx->getNumberofChannels())) {
        const int shown = static_cast<int>(number);
        char info[64];
        char logged[64];
        std::snprintf(info, sizeof info, "Module number %d not supported", shown);
        std::snprintf(logged, sizeof logged, "illegal module %d requested", shown);
        return fail(context, __func__, SCPI_ERROR_QUERY, info, logged);
    }
    std::string reply;
    if (!ask_module(context, __func__, *target.orvanx, static_cast<int>(number), "*TST?\r\n", reply)) {
        return SCPI_RES_ERR;
    }
    return result_of(reply_of_module(context, __func__, reply));
}
