#include "scriptedhttpserver.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <chrono>
#include <stdexcept>
#include <utility>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

std::string lowered(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

std::uint64_t numberAt(const std::string & text, std::size_t begin) {
    std::uint64_t value = 0;
    std::from_chars(text.data() + std::min(begin, text.size()), text.data() + text.size(), value);
    return value;
}

/// The bytes that a request asks for, within a file.
struct Span {
    std::uint64_t first, end;
};

Span spanOf(const ScriptedHttpServer::Received & request, std::uint64_t size) {
    const auto range = request.fields.find("range");
    if (range == request.fields.end()) return {0, size};
    const std::string & text = range->second;
    return {numberAt(text, text.find('=') + 1),
            std::min<std::uint64_t>(size, numberAt(text, text.find('-') + 1) + 1)};
}

} // namespace

ScriptedHttpServer::ScriptedHttpServer() : listener_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = ::htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto * const any = reinterpret_cast<sockaddr *>(&address);
    if (listener_ < 0 || ::bind(listener_, any, size) != 0 || ::listen(listener_, 64) != 0 ||
        ::getsockname(listener_, any, &size) != 0)
        throw std::runtime_error("no server on loopback");
    port_ = ntohs(address.sin_port);
    acceptor_ = std::thread([this] { accept(); });
}

ScriptedHttpServer::~ScriptedHttpServer() {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        isEnding_ = true;
        for (const Connection & connection : threads_)
            ::shutdown(connection.socket, SHUT_RDWR);
    }
    changed_.notify_all();
    ::shutdown(listener_, SHUT_RDWR);
    acceptor_.join();
    for (Connection & connection : threads_) {
        connection.thread.join();
        ::close(connection.socket);
    }
    ::close(listener_);
}

std::wstring ScriptedHttpServer::url(const std::string & path, const std::string & host) const {
    const std::string text = "http://" + host + ":" + std::to_string(port_) + path;
    return {text.begin(), text.end()};
}

void ScriptedHttpServer::setFile(const std::string & path, std::string bytes, const std::string & tag,
                                 const std::string & date) {
    const std::lock_guard<std::mutex> lock(mutex_);
    files_[path] = {std::move(bytes), tag, date};
}

void ScriptedHttpServer::then(HttpAnswer answer) {
    const std::lock_guard<std::mutex> lock(mutex_);
    script_.push_back(std::move(answer));
}

void ScriptedHttpServer::always(HttpAnswer answer) {
    const std::lock_guard<std::mutex> lock(mutex_);
    always_ = std::move(answer);
}

void ScriptedHttpServer::setSendBuffer(int bytes) {
    const std::lock_guard<std::mutex> lock(mutex_);
    sendBuffer_ = bytes;
}

void ScriptedHttpServer::setHeld(bool isHeld) {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        isHeld_ = isHeld;
    }
    changed_.notify_all();
}

std::vector<ScriptedHttpServer::Received> ScriptedHttpServer::received() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return received_;
}

unsigned ScriptedHttpServer::requests() const {
    return static_cast<unsigned>(received().size());
}

unsigned ScriptedHttpServer::connections() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return connections_;
}

unsigned ScriptedHttpServer::usedConnections() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return used_;
}

unsigned ScriptedHttpServer::endedConnections() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return ended_;
}

unsigned ScriptedHttpServer::mostAtOnce() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return mostWorking_;
}

unsigned ScriptedHttpServer::mostConnectionsAtOnce() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return mostOpen_;
}

unsigned ScriptedHttpServer::workingNow() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return working_;
}

std::uint64_t ScriptedHttpServer::sentBytes() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return sentBytes_;
}

void ScriptedHttpServer::resetCounts() {
    const std::lock_guard<std::mutex> lock(mutex_);
    received_.clear();
    connections_ = used_ = ended_ = 0;
    mostOpen_ = openConnections();
    mostWorking_ = working_;
    sentBytes_ = 0;
}

void ScriptedHttpServer::accept() {
    for (;;) {
        const int socket = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        const std::lock_guard<std::mutex> lock(mutex_);
        if (isEnding_ || socket < 0) {
            if (socket >= 0) ::close(socket);
            if (isEnding_) return;
            continue;
        }
        const int on = 1;
        ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        if (sendBuffer_ > 0) ::setsockopt(socket, SOL_SOCKET, SO_SNDBUF, &sendBuffer_, sizeof sendBuffer_);
        ++connections_;
        threads_.push_back({socket, {}});
        Connection & connection = threads_.back();
        mostOpen_ = std::max(mostOpen_, openConnections());
        connection.thread = std::thread([this, &connection] { serve(connection); });
    }
}

/// Those that the client has closed do not count, whether their thread has seen it or not: a client may open
/// another one in their place.
unsigned ScriptedHttpServer::openConnections() const {
    return static_cast<unsigned>(std::count_if(threads_.begin(), threads_.end(), [](const Connection & c) {
        pollfd state = {c.socket, POLLRDHUP, 0};
        return !c.hasEnded && ::poll(&state, 1, 0) == 0;
    }));
}

void ScriptedHttpServer::serve(Connection & connection) {
    const int socket = connection.socket;
    std::string buffer;
    for (Received request; readRequest(socket, buffer, request); request = {}) {
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            received_.push_back(request);
            if (!std::exchange(connection.isUsed, true)) ++used_;
        }
        if (answer(socket, request)) continue;
        const std::lock_guard<std::mutex> lock(mutex_);
        ++ended_;
        break;
    }
    // The socket is closed at the very end, so that its number stays its own.
    {
        // Before the client can see it, and open another one.
        const std::lock_guard<std::mutex> lock(mutex_);
        connection.hasEnded = true;
    }
    ::shutdown(socket, SHUT_RDWR);
}

bool ScriptedHttpServer::readRequest(int socket, std::string & buffer, Received & request) {
    std::size_t end = 0;
    while ((end = buffer.find("\r\n\r\n")) == std::string::npos) {
        char bytes[4096];
        const ssize_t count = ::recv(socket, bytes, sizeof bytes, 0);
        if (count <= 0) return false;
        buffer.append(bytes, static_cast<std::size_t>(count));
    }
    std::string head = buffer.substr(0, end + 2);
    buffer.erase(0, end + 4);
    const std::size_t space = head.find(' ');
    request.method = head.substr(0, space);
    request.path = head.substr(space + 1, head.find(' ', space + 1) - space - 1);
    for (std::size_t line = head.find("\r\n") + 2; line < head.size(); line = head.find("\r\n", line) + 2) {
        const std::size_t colon = head.find(": ", line);
        const std::size_t behind = head.find("\r\n", line);
        if (colon < behind)
            request.fields[lowered(head.substr(line, colon - line))] =
                head.substr(colon + 2, behind - colon - 2);
    }
    return true;
}

HttpAnswer ScriptedHttpServer::nextAnswer() {
    std::unique_lock<std::mutex> lock(mutex_);
    HttpAnswer answer = always_;
    if (!script_.empty()) {
        answer = script_.front();
        script_.pop_front();
    }
    changed_.wait(lock, [this] { return !isHeld_ || isEnding_; });
    return answer;
}

ScriptedHttpServer::Work::Work(ScriptedHttpServer & server) : server_(server) {
    const std::lock_guard<std::mutex> lock(server_.mutex_);
    server_.mostWorking_ = std::max(server_.mostWorking_, ++server_.working_);
}

void ScriptedHttpServer::Work::end() {
    const std::lock_guard<std::mutex> lock(server_.mutex_);
    if (isCounted_) --server_.working_;
    isCounted_ = false;
}

ScriptedHttpServer::File ScriptedHttpServer::fileAt(const std::string & path) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = files_.find(path.substr(0, path.find('?')));
    return found == files_.end() ? File() : found->second;
}

/// Whether the connection is good for another request.
bool ScriptedHttpServer::answer(int socket, const Received & request) {
    Work work(*this);
    const HttpAnswer answer = nextAnswer();
    if (!sleep(answer.delay)) return false;
    if (answer.silentAfter == -1) waitForEnd(socket);
    if (answer.dropAfter == -1 || answer.silentAfter == -1) return false;
    return sendAnswer(socket, answer, fileAt(request.path), request, work);
}

bool ScriptedHttpServer::sendAnswer(int socket, const HttpAnswer & answer, const File & file,
                                    const Received & request, Work & work) {
    const Span span = spanOf(request, file.bytes.size());
    std::string body = answer.body.value_or("");
    std::string head = "HTTP/1.1 " + std::to_string(answer.status) + " " + answer.reason + "\r\n";
    if (answer.isWholeFile) {
        head = "HTTP/1.1 200 OK\r\n";
        body = file.bytes;
    } else if (answer.status == 206 && span.first >= span.end) {
        head = "HTTP/1.1 416 Range Not Satisfiable\r\n";
    } else if (answer.status == 206) {
        const std::string range = "bytes " + std::to_string(span.first) + "-" + std::to_string(span.end - 1) +
                                  "/" + answer.total.value_or(std::to_string(file.bytes.size()));
        const std::string stated = answer.contentRange.value_or(range);
        if (!stated.empty()) head += "Content-Range: " + stated + "\r\n";
        if (!answer.body) body = file.bytes.substr(span.first, span.end - span.first);
    }
    body.resize(static_cast<std::size_t>(std::max(0L, static_cast<long>(body.size()) + answer.excess)), '+');
    if (!file.tag.empty()) head += "ETag: " + file.tag + "\r\n";
    if (!file.date.empty()) head += "Last-Modified: " + file.date + "\r\n";
    for (const std::string & line : answer.lines)
        head += line + "\r\n";
    head += answer.isLengthHidden ? std::string("Connection: close\r\n")
                                  : "Content-Length: " + std::to_string(body.size()) + "\r\n";
    head += "\r\n";
    return sendAll(socket, head.data(), head.size(), false) && sendBody(socket, answer, body, work) &&
           !answer.isLengthHidden;
}

/// The work ends before its last bytes are on their way: else the next request of the client could be counted
/// beside it.
bool ScriptedHttpServer::sendBody(int socket, const HttpAnswer & answer, const std::string & body,
                                  Work & work) {
    const bool isCut = answer.dropAfter || answer.silentAfter;
    const long end = answer.dropAfter.value_or(answer.silentAfter.value_or(0));
    const std::size_t count = isCut ? std::min(body.size(), static_cast<std::size_t>(end)) : body.size();
    if (answer.secondsPerByte > 0.0) {
        for (std::size_t i = 0; i < count; ++i)
            if (!sendAll(socket, body.data() + i, 1, true) || !sleep(answer.secondsPerByte)) return false;
    } else {
        if (!isCut) work.end();
        if (!sendAll(socket, body.data(), count, true)) return false;
    }
    if (answer.silentAfter) waitForEnd(socket);
    return !isCut;
}

bool ScriptedHttpServer::sendAll(int socket, const char * bytes, std::size_t size, bool isBody) {
    for (std::size_t sent = 0; sent < size;) {
        // In pieces: a call returns when all of it is on the way.
        const std::size_t piece = std::min<std::size_t>(size - sent, 16 << 10);
        const ssize_t count = ::send(socket, bytes + sent, piece, MSG_NOSIGNAL);
        if (count <= 0) return false;
        sent += static_cast<std::size_t>(count);
        const std::lock_guard<std::mutex> lock(mutex_);
        if (isBody) sentBytes_ += static_cast<std::uint64_t>(count);
    }
    return true;
}

bool ScriptedHttpServer::sleep(double seconds) {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait_for(lock, std::chrono::duration<double>(seconds), [this] { return isEnding_; });
    return !isEnding_;
}

/// Up to when the client closes the connection, or the server ends.
void ScriptedHttpServer::waitForEnd(int socket) {
    char byte = 0;
    while (::recv(socket, &byte, 1, 0) > 0) {
    }
}
