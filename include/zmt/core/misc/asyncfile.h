#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <nbx/data/dataresource.h>
#include <nbx/object/sharedobj.h>
#include <nbx/object/so.h>

namespace ZMT::CORE {

/// A file on a disk or a web server that is read in ranges of bytes, each with a priority. Nobody is called
/// back: whoever asked comes again and looks at the state of the request, and that is also what drives the
/// transfers. Dropping the last reference closes the file; requests that outlive it fail when they are next
/// looked at.
///
/// A file and its requests belong to the thread that opened it; files on web servers belong to the thread of
/// the application's event loop, and used elsewhere they report, and give nothing. Nothing throws.
class AsyncFile : public NBX::SharedObj {
    NBX_CLASS(AsyncFile, NBX::SharedObj)
public:
    class Request;
    using Requests = std::vector<NBX::SO<Request>>;

    /// States only move forward.
    enum RequestState {
        RS_Queued = 0,     ///< waits for its turn
        RS_Processing = 1, ///< the transfer is under way
        RS_Ready = 2,      ///< the data are complete
        RS_Failed = 3,     ///< the transfer failed or the file is gone; `Request::errorText` says why
    };

    /// Why a file cannot be opened.
    struct Problem {
        std::wstring text;              ///< for people; that of the server, when it was a URL
        bool isRedirectRefused = false; ///< to a server that is followed where `HttpSettings` say so
    };

    /// What blocking reads and roots ask with: nothing that is queued overtakes it.
    static constexpr double topPriority = 1e+42;

    /// Waits for each in turn, up to the first failure. True when all are ready.
    virtual bool wait(const Requests & requests);
    /// As `Request::wait`; false for null.
    virtual bool wait(const NBX::SO<Request> & request);
    /// The path or the URL; empty for bytes in memory.
    virtual std::wstring url() const = 0;
    /// Why the file could not be opened; empty when it could.
    virtual std::wstring errorText() const = 0;
    /// In bytes.
    virtual std::uint64_t size() const = 0;
    /// Those of `requests()` that are in `state`, in the same order. Looks at all of them.
    virtual Requests requests(RequestState state) const;
    /// All that the file knows, the oldest first.
    virtual Requests requests() const = 0;
    /// A new request for `size` bytes from `offset` on. Those of higher priority are served first. Null when
    /// the file is not open.
    virtual NBX::SO<Request> request(std::uint64_t offset, std::uint64_t size, double priority) = 0;
    /// `remove` for each; true when any was removed.
    virtual bool remove(const Requests & requests);
    /// Forgets a request; false when the file does not know it.
    virtual bool remove(const NBX::SO<Request> & request) = 0;
    virtual bool isOpen() const = 0;
    /// Whether another file lies at the path or the URL than the one that was opened: on a disk as it is now,
    /// on a web server as its last answers say. What was opened is read on where that is possible; to have
    /// the other one, open it.
    virtual bool hasChanged() const { return false; }

    /// The bytes of a range, at once: asks with `topPriority`, waits, and forgets the request. Null when
    /// they cannot be read or are not all there; `problem`, where given, then says why.
    NBX::SO<NBX::DataResource> readNow(std::uint64_t offset, std::uint64_t size,
                                       std::wstring * problem = nullptr);

    /// Opens what lies at a path or at a URL of a web server. What cannot be opened gives null, reported at
    /// level 2 under "false" with its text and the path; `problem`, where given, gets the text. A file on a
    /// disk is removed with the last reference if `deleteWhenClosed`.
    static NBX::SO<AsyncFile> create(const std::wstring & urlOrPath, bool deleteWhenClosed = false,
                                     std::wstring * problem = nullptr);
    static NBX::SO<AsyncFile> create(const std::wstring & urlOrPath, bool deleteWhenClosed,
                                     Problem & problem);
    /// The bytes of `resource`, which are shared.
    static NBX::SO<AsyncFile> create(NBX::SO<NBX::DataResource> resource);
    /// True while any transfer is under way in the process.
    static bool isLoading();
    /// Requests of all files that wait or are under way.
    static std::size_t pendingRequests();
    /// Lets the event loop work on the transfers from web servers for `maxTime` milliseconds at most.
    static bool wait(double maxTime);
    /// Bytes received from web servers since the process began.
    static std::uint64_t TotalTransferedBytes();
    /// Bytes of local files that were read well since the process began.
    static std::uint64_t TotalLocalBytes();
};

/// A range of bytes that was asked for.
class AsyncFile::Request : public NBX::SharedObj {
    NBX_CLASS(Request, NBX::SharedObj)
public:
    /// Null once the file is gone.
    virtual NBX::SO<AsyncFile> file() const = 0;
    virtual std::uint64_t offset() const = 0;
    /// Exactly as many bytes as were asked for; to be read in `RS_Ready` alone.
    virtual NBX::SO<NBX::DataResource> data() const = 0;
    /// As it was last set.
    virtual double priority() const = 0;
    /// Looks at the transfer, and moves it on.
    virtual RequestState state() = 0;
    /// Bytes received so far; -1 before anything has arrived.
    virtual std::int64_t transferredBytes() const = 0;
    /// `AsyncFile::remove` of its file; false when that is gone.
    virtual bool cancel();
    /// Blocks until the request is ready, which gives true, or has failed, or a `Patience` has ended. Nothing
    /// that is queued overtakes it meanwhile; what was given up goes on with the priority that it had.
    virtual bool wait() = 0;
    /// Why it failed.
    virtual std::wstring errorText() const = 0;
    /// False once the request is no longer queued.
    virtual bool setPriority(double priority) = 0;
};

} // namespace ZMT::CORE
