/**
 * The periodic "FAN test", which a fan thread reports.
 */
#ifndef ORVAN_SDK_FAN_TEST_H
#define ORVAN_SDK_FAN_TEST_H

class BITManager;

namespace HaldeElec::Orvan {

/** Fails while failed cycles outnumber successful ones by ten. */
class FanTest {
public:
    /** Counts a cycle; the count stays between 0 and ten. */
    void count(bool failed);

    /** Reports the result for the current count. */
    void report(BITManager& manager) const;

private:
    int m_errors = 0;
};

} // namespace HaldeElec::Orvan

#endif
