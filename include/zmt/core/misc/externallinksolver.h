#pragma once

#include <string>

namespace ZMT::UTIL {

/// Kind of file that a stored link leads to. The application that sets the callback gives meaning to the
/// values; this library itself asks for 0 alone.
using LinkType = int;

/// Lets the application resolve links to files that are missing, by a dialog or otherwise. Values of the
/// process; set from the thread that loads.
class ExternalLinkSolver {
public:
    /// Takes the proposed file and gives the chosen one in the same string; false when none was chosen.
    using PickFileCallback = bool (*)(LinkType, std::wstring &);

    /// Null takes the callback away.
    static void setPickFileCallback(PickFileCallback callback) { m_pickFileCallback = callback; }
    /// Asks the application. True when it chose: `name` is then its choice, and the scene has to be stored
    /// again for the link to stay resolved. False without a callback.
    static bool pickFileCallback(LinkType type, std::wstring & name) {
        if (!m_pickFileCallback || !m_pickFileCallback(type, name)) return false;
        m_modified = true;
        return true;
    }

    /// True since a link was changed by `pickFileCallback`.
    static bool modified() { return m_modified; }
    static void resetModified() { m_modified = false; }

private:
    static inline PickFileCallback m_pickFileCallback = nullptr;
    static inline bool m_modified = false;
};

} // namespace ZMT::UTIL
