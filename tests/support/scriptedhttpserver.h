#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <list>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

/// What a `ScriptedHttpServer` does with one request. As it stands: the right answer.
struct HttpAnswer {
    int status = 206;
    std::string reason = "Partial Content";
    /// Header lines that are added, such as "Retry-After: 1".
    std::vector<std::string> lines = {};
    /// The whole file with status 200, as servers send it that know no ranges.
    bool isWholeFile = false;
    /// In place of the true one; empty for none.
    std::optional<std::string> contentRange = {};
    /// The size of the file that the range says, in place of the true one.
    std::optional<std::string> total = {};
    /// Bytes that the body has more than were asked for; fewer when negative. The length is stated so.
    long excess = 0;
    /// The length is not stated; the end of the connection is the end of the body.
    bool isLengthHidden = false;
    /// After so many bytes of the body the connection is closed; without head for -1.
    std::optional<long> dropAfter = {};
    /// After so many bytes of the body nothing comes any more; without head for -1.
    std::optional<long> silentAfter = {};
    /// Each byte of the body comes so long after the one before it.
    double secondsPerByte = 0.0;
    /// What goes before the answer.
    double delay = 0.0;
    /// The body in place of the bytes of the file.
    std::optional<std::string> body = {};
};

/// A web server on loopback that does what a test tells it to, in threads of its own: the answers of the
/// script one by one, and the same one for ever behind them. It counts what it is asked.
class ScriptedHttpServer {
public:
    struct Received {
        std::string method;
        std::string path;                          ///< with the query
        std::map<std::string, std::string> fields; ///< names in lower case
    };

    ScriptedHttpServer();
    ~ScriptedHttpServer();
    ScriptedHttpServer(const ScriptedHttpServer &) = delete;
    ScriptedHttpServer & operator=(const ScriptedHttpServer &) = delete;

    int port() const { return port_; }
    /// Of a path that begins with '/'.
    std::wstring url(const std::string & path, const std::string & host = "127.0.0.1") const;

    /// What lies at a path, without its query; `tag` becomes the ETag, when it is not empty.
    void setFile(const std::string & path, std::string bytes, const std::string & tag = "",
                 const std::string & date = "");
    /// The answer to the next request that none is given yet.
    void then(HttpAnswer answer);
    /// The answer to all behind those; at first, the right one.
    void always(HttpAnswer answer);
    /// Of the connections that follow: bytes that the system takes before they were received.
    void setSendBuffer(int bytes);
    /// Answers wait while it is on.
    void setHeld(bool isHeld);

    std::vector<Received> received() const;
    unsigned requests() const;
    /// Connections that were opened since the beginning.
    unsigned connections() const;
    /// Of these, those that the server has ended.
    unsigned endedConnections() const;
    /// On which a request came for the first time.
    unsigned usedConnections() const;
    /// Most requests that were worked on at once, and connections that were open at once.
    unsigned mostAtOnce() const;
    unsigned mostConnectionsAtOnce() const;
    unsigned workingNow() const;
    /// Bytes of bodies that the system took.
    std::uint64_t sentBytes() const;
    void resetCounts();

private:
    struct File {
        std::string bytes, tag, date;
    };
    struct Connection {
        int socket = -1;
        std::thread thread;
        bool isUsed = false;   ///< by a request
        bool hasEnded = false; ///< by the server
    };
    /// Counts a request as worked on, up to `end`.
    class Work {
    public:
        explicit Work(ScriptedHttpServer & server);
        ~Work() { end(); }
        Work(const Work &) = delete;
        Work & operator=(const Work &) = delete;
        void end();

    private:
        ScriptedHttpServer & server_;
        bool isCounted_ = true;
    };
    void accept();
    void serve(Connection & connection);
    unsigned openConnections() const;
    static bool readRequest(int socket, std::string & buffer, Received & request);
    HttpAnswer nextAnswer();
    bool answer(int socket, const Received & request);
    File fileAt(const std::string & path) const;
    bool sendAnswer(int socket, const HttpAnswer & answer, const File & file, const Received & request,
                    Work & work);
    bool sendBody(int socket, const HttpAnswer & answer, const std::string & body, Work & work);
    bool sendAll(int socket, const char * bytes, std::size_t size, bool isBody);
    /// False when the server ends.
    bool sleep(double seconds);
    static void waitForEnd(int socket);

    int listener_ = -1;
    int port_ = 0;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    bool isEnding_ = false;
    bool isHeld_ = false;
    std::map<std::string, File> files_;
    std::deque<HttpAnswer> script_;
    HttpAnswer always_;
    std::vector<Received> received_;
    int sendBuffer_ = 0; ///< 0 for what the system chooses
    unsigned connections_ = 0, used_ = 0, ended_ = 0, mostOpen_ = 0, working_ = 0, mostWorking_ = 0;
    std::uint64_t sentBytes_ = 0;
    std::list<Connection> threads_;
    std::thread acceptor_;
};
