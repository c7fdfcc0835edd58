// Where a file comes from: from memory, from a web server, else from a disk. What fails as a URL is tried as
// a path as well, since a path may look like one; the text of the server is the one to tell then.

#include <zmt/core/misc/asyncfile.h>

#include <algorithm>

#include <nbx/data/locator.h>
#include <nbx/object/errorhandler.h>
#include <nbx/object/stringutils.h>

#include "asyncfile_mem.h"
#include "asyncfile_win.h"
#include "core/file/waitlimit.h"
#include "httpfile.h"

namespace ZMT::CORE {

namespace {

std::wstring shown(const std::wstring & urlOrPath) {
    using NBX::StringUtils;
    return StringUtils::Utf8String2WString(NBX::Locator(StringUtils::WString2Utf8String(urlOrPath)).shown());
}

} // namespace

NBX_CLASS_IMPL(AsyncFile, NBX::SharedObj)
NBX_CLASS_IMPL(AsyncFile::Request, NBX::SharedObj)

bool AsyncFile::wait(const Requests & requests) {
    const IMPL::WaitLimit limit;
    return std::all_of(requests.begin(), requests.end(),
                       [this](const NBX::SO<Request> & request) { return wait(request); });
}

bool AsyncFile::wait(const NBX::SO<Request> & request) {
    return request && request->wait();
}

AsyncFile::Requests AsyncFile::requests(RequestState state) const {
    Requests result = requests();
    for (std::size_t i = result.size(); i-- > 0;)
        if (result[i]->state() != state) result.erase(result.begin() + static_cast<std::ptrdiff_t>(i));
    return result;
}

NBX::SO<NBX::DataResource> AsyncFile::readNow(std::uint64_t offset, std::uint64_t size,
                                              std::wstring * problem) {
    const auto fail = [problem](const std::wstring & text) -> NBX::SO<NBX::DataResource> {
        if (problem) *problem = text;
        return nullptr;
    };
    const NBX::SO<Request> request = this->request(offset, size, topPriority);
    if (!request) return fail(L"the file is not open");
    const bool isReady = request->wait();
    const NBX::SO<NBX::DataResource> data = isReady ? request->data() : nullptr;
    const std::wstring reason = request->errorText();
    request->cancel();
    if (!isReady) return fail(reason.empty() ? L"nobody waited for the answer" : reason);
    return !data || data->size() == size ? data : fail(L"the read came back short");
}

bool AsyncFile::remove(const Requests & requests) {
    bool isAnyRemoved = false;
    for (const NBX::SO<Request> & request : requests)
        isAnyRemoved = remove(request) || isAnyRemoved;
    return isAnyRemoved;
}

NBX::SO<AsyncFile> AsyncFile::create(const std::wstring & urlOrPath, bool deleteWhenClosed,
                                     std::wstring * problem) {
    Problem found;
    const NBX::SO<AsyncFile> file = create(urlOrPath, deleteWhenClosed, found);
    if (!file && problem) *problem = found.text;
    return file;
}

NBX::SO<AsyncFile> AsyncFile::create(const std::wstring & urlOrPath, bool deleteWhenClosed,
                                     Problem & problem) {
    Problem found;
    if (NBX::SO<AsyncFile> remote = IMPL::openHttpFile(urlOrPath, found.text, &found.isRedirectRefused))
        return remote;
    NBX::SO<AsyncFile> local(new IMPL::AsyncFile_Win(urlOrPath, deleteWhenClosed));
    if (local->isOpen()) return local;
    if (found.text.empty()) found.text = local->errorText();
    NBX_FAILURE(found.text << L": " << shown(urlOrPath));
    problem = found;
    return nullptr;
}

NBX::SO<AsyncFile> AsyncFile::create(NBX::SO<NBX::DataResource> resource) {
    return new AsyncFile_Mem(resource);
}

bool AsyncFile::isLoading() {
    return IMPL::isHttpLoading() || IMPL::AsyncFile_Win::isLoading();
}

std::size_t AsyncFile::pendingRequests() {
    return IMPL::pendingHttpRequests() + IMPL::AsyncFile_Win::pendingRequests();
}

bool AsyncFile::wait(double maxTime) {
    return IMPL::waitForHttp(maxTime);
}

std::uint64_t AsyncFile::TotalTransferedBytes() {
    return IMPL::totalHttpBytes();
}

std::uint64_t AsyncFile::TotalLocalBytes() {
    return IMPL::AsyncFile_Win::totalBytes();
}

bool AsyncFile::Request::cancel() {
    const NBX::SO<AsyncFile> owner = file();
    return owner && owner->remove(NBX::SO<Request>(this));
}

} // namespace ZMT::CORE
