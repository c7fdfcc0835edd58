#include <zmt/core/misc/externallinksolver.h>

namespace ZMT::UTIL {

ExternalLinkSolver::PickFileCallback ExternalLinkSolver::m_pickFileCallback = nullptr;
bool ExternalLinkSolver::m_modified = false;

void ExternalLinkSolver::setPickFileCallback(PickFileCallback callback) {
    m_pickFileCallback = callback;
}

bool ExternalLinkSolver::pickFileCallback(LinkType type, std::wstring & name) {
    if (!m_pickFileCallback || !m_pickFileCallback(type, name)) return false;
    m_modified = true;
    return true;
}

} // namespace ZMT::UTIL
