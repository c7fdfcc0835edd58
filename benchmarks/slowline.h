#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <list>
#include <string>
#include <thread>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

/// A line to a server on loopback as it would be to one far away: bytes arrive half a round trip after they
/// were sent, a new connection takes one round trip more, and all that comes back shares one rate.
class SlowLine {
public:
    /// To `port`, with a round trip in seconds and a rate in bytes a second.
    SlowLine(int port, double roundTrip, double rate) : target_(port), delay_(roundTrip / 2.0), rate_(rate) {
        listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
        sockaddr_in address = loopback(0);
        socklen_t size = sizeof address;
        if (::bind(listener_, reinterpret_cast<sockaddr *>(&address), size) == 0 &&
            ::listen(listener_, 16) == 0 &&
            ::getsockname(listener_, reinterpret_cast<sockaddr *>(&address), &size) == 0)
            port_ = ntohs(address.sin_port);
        thread_ = std::thread([this] { run(); });
    }
    ~SlowLine() {
        isEnding_ = true;
        thread_.join();
        ::close(listener_);
    }
    SlowLine(const SlowLine &) = delete;
    SlowLine & operator=(const SlowLine &) = delete;

    int port() const { return port_; }

private:
    struct Piece {
        double due;
        std::string bytes;
    };
    struct Way {
        int from, to;
        bool isDown; ///< towards the one who asks
        std::deque<Piece> pieces;
        std::size_t waiting = 0;
        bool isOver = false;
    };
    struct Connection {
        double opened;
        Way up, down;
    };
    static constexpr std::size_t s_mostWaiting = 1U << 20U;

    static double now() {
        return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
    }
    static sockaddr_in loopback(int port) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<std::uint16_t>(port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        return address;
    }
    static void prepare(int socket) {
        const int on = 1;
        ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        ::fcntl(socket, F_SETFL, ::fcntl(socket, F_GETFL) | O_NONBLOCK);
    }

    void run() {
        while (!isEnding_) {
            accept();
            bool isBusy = false;
            for (Connection & c : connections_)
                for (Way * way : {&c.up, &c.down})
                    isBusy = read(*way, c) || write(*way) || isBusy;
            connections_.remove_if([](const Connection & c) {
                const bool isOver =
                    (c.up.isOver && c.up.pieces.empty()) || (c.down.isOver && c.down.pieces.empty());
                if (isOver) {
                    ::close(c.up.from);
                    ::close(c.up.to);
                }
                return isOver;
            });
            if (!isBusy) std::this_thread::sleep_for(std::chrono::microseconds(300));
        }
        for (const Connection & c : connections_) {
            ::close(c.up.from);
            ::close(c.up.to);
        }
    }
    void accept() {
        const int client = ::accept(listener_, nullptr, nullptr);
        if (client < 0) return;
        const int server = ::socket(AF_INET, SOCK_STREAM, 0);
        const sockaddr_in address = loopback(target_);
        if (::connect(server, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
            ::close(client);
            ::close(server);
            return;
        }
        prepare(client);
        prepare(server);
        connections_.push_back({now(), {client, server, false, {}}, {server, client, true, {}}});
    }
    bool read(Way & way, const Connection & connection) {
        if (way.isOver || way.waiting > s_mostWaiting) return false;
        char buffer[16384];
        const ssize_t count = ::recv(way.from, buffer, sizeof buffer, 0);
        if (count < 0) {
            way.isOver = errno != EAGAIN && errno != EINTR;
            return false;
        }
        way.isOver = count == 0;
        if (count == 0) return false;
        const double time = now();
        double sent = std::max(time, connection.opened + 2.0 * delay_);
        if (way.isDown) sent = free_ = std::max(free_, time) + double(count) / rate_;
        way.pieces.push_back({sent + delay_, std::string(buffer, std::size_t(count))});
        way.waiting += std::size_t(count);
        return true;
    }
    static bool write(Way & way) {
        bool isAny = false;
        while (!way.pieces.empty() && way.pieces.front().due <= now()) {
            Piece & piece = way.pieces.front();
            const ssize_t count = ::send(way.to, piece.bytes.data(), piece.bytes.size(), MSG_NOSIGNAL);
            if (count <= 0) {
                way.isOver = way.isOver || (errno != EAGAIN && errno != EINTR);
                if (way.isOver) way.pieces.clear();
                return isAny;
            }
            isAny = true;
            way.waiting -= std::size_t(count);
            piece.bytes.erase(0, std::size_t(count));
            if (piece.bytes.empty()) way.pieces.pop_front();
        }
        return isAny;
    }

    const int target_;
    const double delay_, rate_;
    int listener_ = -1, port_ = 0;
    double free_ = 0.0; ///< when the line back has sent all that it was given
    std::list<Connection> connections_;
    std::atomic<bool> isEnding_{false};
    std::thread thread_;
};
