#ifndef ORVAN_WEB_SETUPS_H
#define ORVAN_WEB_SETUPS_H

#include <string>

#include "channels.h"
#include "json.h"

namespace orvan_web {

inline constexpr int kFactorySetup = 0;
inline constexpr int kLastSetup = 5;

/** The setups that are stored on the controller, as their files show them. Loop's thread; reads small files.
 */
class Setups {
public:
    /** @param folder has the library's folders "json" and "preset" */
    Setups(std::string folder, const Channels& channels) : m_folder(std::move(folder)), m_channels(channels)
    {
    }

    /** All setups: number, whether it is the factory's, whether all channels have a file of it, and since
     * when. */
    Json list() const;

    /** Whether all channels have a file of it. */
    bool stored(int setup) const;

    /**
     * What a recall would change, setting by setting: channel, path, label, unit, "now" and "setup".
     *
     * @param complaint set to the reason if a file cannot be used
     * @return null then
     */
    Json differences(int setup, std::string& complaint) const;

private:
    std::string file(int setup, int channel) const;

    const std::string m_folder;
    const Channels& m_channels;
};

} // namespace orvan_web

#endif
