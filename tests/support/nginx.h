#pragma once

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

/// The web server of the system on loopback, where it is installed, with a folder of files that goes with it.
/// It logs what it is asked.
class Nginx {
public:
    static bool isInstalled() { return run("nginx -v"); }

    Nginx() {
        std::filesystem::create_directories(folder_ + "/www");
        std::filesystem::permissions(folder_, std::filesystem::perms(0755));
    }
    ~Nginx() {
        stop();
        std::error_code ignored;
        std::filesystem::remove_all(folder_, ignored);
    }
    Nginx(const Nginx &) = delete;
    Nginx & operator=(const Nginx &) = delete;

    /// Starts with lines of its `server` block, and such in front of it. Again after `stop` as before.
    bool start(const std::string & serverLines = "", const std::string & httpLines = "") {
        std::ofstream(folder_ + "/conf")
            << "user " << (::geteuid() == 0 ? "root" : "nobody") << "; daemon on; worker_processes 1; pid "
            << folder_ << "/pid; error_log " << folder_ << "/error;\nevents {}\nhttp { access_log " << folder_
            << "/log; keepalive_requests 100000;\n"
            << temporaryPaths() << httpLines << "\nserver { listen 127.0.0.1:" << port_ << "; root "
            << folder_ << "/www;\n"
            << serverLines << "\n} }\n";
        return run(command()) && waitUntil([this] { return std::filesystem::exists(folder_ + "/pid"); });
    }
    void stop() {
        if (!std::filesystem::exists(folder_ + "/pid")) return;
        run(command() + " -s stop");
        waitUntil([this] { return !std::filesystem::exists(folder_ + "/pid"); });
    }
    /// With what it was started with.
    bool startAgain() {
        return run(command()) && waitUntil([this] { return std::filesystem::exists(folder_ + "/pid"); });
    }

    int port() const { return port_; }
    std::wstring url(const std::string & name) const {
        const std::string text = "http://127.0.0.1:" + std::to_string(port_) + "/" + name;
        return std::wstring(text.begin(), text.end());
    }
    std::string pathOf(const std::string & name) const { return folder_ + "/www/" + name; }
    void write(const std::string & name, const std::vector<std::uint8_t> & bytes) const {
        std::ofstream(pathOf(name), std::ios::binary)
            .write(reinterpret_cast<const char *>(bytes.data()), std::streamsize(bytes.size()));
    }
    /// Flags are files, so that the server's configuration can look at them.
    std::string flag(const std::string & name) const { return folder_ + "/" + name; }
    void setFlag(const std::string & name, bool isOn) const {
        if (isOn)
            std::ofstream(flag(name)) << "on";
        else
            std::filesystem::remove(flag(name));
    }

    /// Lines of its log: answers that it has ended.
    unsigned answers() const {
        std::ifstream log(folder_ + "/log");
        unsigned count = 0;
        for (std::string line; std::getline(log, line);)
            ++count;
        return count;
    }

private:
    static bool run(const std::string & command) {
        return std::system(("PATH=$PATH:/usr/sbin " + command + " >/dev/null 2>&1").c_str()) == 0;
    }
    static bool waitUntil(const auto & isReached) {
        for (int i = 0; i < 500 && !isReached(); ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        return isReached();
    }
    /// One that nobody uses now.
    static int freePort() {
        const int socket = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        const bool isBound = ::bind(socket, reinterpret_cast<sockaddr *>(&address), size) == 0 &&
                             ::getsockname(socket, reinterpret_cast<sockaddr *>(&address), &size) == 0;
        ::close(socket);
        return isBound ? ntohs(address.sin_port) : 0;
    }
    std::string command() const { return "nginx -p " + folder_ + " -c " + folder_ + "/conf"; }
    std::string temporaryPaths() const {
        std::string lines;
        for (const char * kind : {"client_body", "proxy", "fastcgi", "uwsgi", "scgi"})
            lines += std::string(kind) + "_temp_path " + folder_ + "/" + kind + ";\n";
        return lines;
    }

    const int port_ = freePort();
    const std::string folder_ =
        (std::filesystem::temp_directory_path() / ("zmt_nginx_" + std::to_string(::getpid()))).string();
};
