#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <nbx/object/classpattern.h>
#include <nbx/object/sharedobj.h>

#include "core/http/httpbackoff.h"

class QNetworkAccessManager;

namespace ZMT::CORE::IMPL {

class AsyncFile_QtHttpImpl;

/// Knows all files on web servers, and says which one starts its next transfer. Made on first use and kept
/// for the life of the process; what it needs of the network lives as long as the application object.
class AsyncFileManager : public NBX::SharedObj {
    NBX_CLASS(AsyncFileManager, NBX::SharedObj)
public:
    /// So many transfers run at once in the process.
    static constexpr unsigned s_mostTransfers = 5;

    static AsyncFileManager & instance();

    void add(AsyncFile_QtHttpImpl * file);
    void remove(const AsyncFile_QtHttpImpl * file);

    /// Requests of this priority, and of lower ones, stay queued.
    static constexpr double s_neverServed = -1.0;
    /// Starts as many transfers as may run.
    void dispatchAll();
    /// The number of transfers under way.
    unsigned working() const;
    /// The number of requests that wait or are under way.
    std::size_t pending() const;

    HttpBackoff & backoff() { return backoff_; }
    /// What was given with URLs, "user:password" by scheme, host and port. Kept here alone: URLs that are
    /// shown or stored have none, and lead back to it while the process lasts.
    std::map<std::string, std::string> & logins() { return logins_; }
    /// Null without an application object.
    QNetworkAccessManager * network();

    static void addTransferedBytes(std::uint64_t count);
    static std::uint64_t TotalTransferedBytes();

private:
    struct Network;
    AsyncFileManager();
    ~AsyncFileManager() override;
    static void endNetwork();
    /// Starts at most one transfer: of the file with the highest queued priority among those that have a
    /// client idle and whose server is not left alone. Whether one was started.
    bool dispatch(double now);
    bool isAsked(const AsyncFile_QtHttpImpl & file) const;
    void scheduleResumption(double now);

    std::vector<AsyncFile_QtHttpImpl *> files_;
    HttpBackoff backoff_;
    std::map<std::string, std::string> logins_;
    std::unique_ptr<Network> network_;
    bool isEnding_ = false; ///< the application object is about to go: nothing starts
};

} // namespace ZMT::CORE::IMPL
