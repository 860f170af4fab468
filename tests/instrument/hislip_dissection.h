/**
 * What tshark's HiSLIP dissector makes of a capture.
 */
#ifndef ORVAN_TESTS_INSTRUMENT_HISLIP_DISSECTION_H
#define ORVAN_TESTS_INSTRUMENT_HISLIP_DISSECTION_H

#include <string>
#include <vector>

namespace orvan_test {

constexpr int kHislipPort = 4880;

struct HislipDissection {
    std::vector<int> types;          /**< of the messages, in order */
    std::vector<std::string> faults; /**< a line with the frame and the remarks for each doubtful one */
};

/** @param capture a pcap file; throws std::runtime_error if tshark does not read it */
HislipDissection dissect_hislip(const std::string& capture);

} // namespace orvan_test

#endif
