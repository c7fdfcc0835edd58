// Reading ranges of 64 KiB from nginx on loopback, next to a bare loop over the same network class with as
// many transfers in flight, in alternating rounds; the counters are medians. `curl --parallel` on the same
// ranges is told beside, where it is installed.

#include <zmt/core/misc/asyncfile.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <sys/resource.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QNetworkAccessManager>
#include <QNetworkReply>

namespace {

using ZMT::CORE::AsyncFile;

constexpr int s_port = 18491;
constexpr unsigned s_range = 64 * 1024;
constexpr unsigned s_fileRanges = 512;
constexpr unsigned s_inFlight = 4;

const std::string s_url = "http://127.0.0.1:" + std::to_string(s_port) + "/data";

double now() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

/// Processor time of all threads of the process.
double processorTime() {
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval & t) { return double(t.tv_sec) + 1e-6 * double(t.tv_usec); };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

/// nginx with a file of noise, in a folder that goes with it.
class Nginx {
public:
    Nginx() {
        std::filesystem::create_directories(folder_);
        std::ofstream(folder_ + "/nginx.conf")
            << "daemon on; worker_processes 1; pid " << folder_ << "/pid; error_log " << folder_
            << "/error;\nevents {}\nhttp { access_log off; sendfile on; keepalive_requests 1000000;\n"
            << "client_body_temp_path " << folder_ << "/a; proxy_temp_path " << folder_
            << "/b; fastcgi_temp_path " << folder_ << "/c; uwsgi_temp_path " << folder_
            << "/d; scgi_temp_path " << folder_ << "/e;\nserver { listen 127.0.0.1:" << s_port << "; root "
            << folder_ << "; } }\n";
        std::vector<unsigned> words(s_range / 4 * s_fileRanges);
        unsigned word = 1;
        for (unsigned & w : words)
            w = word = word * 1664525u + 1013904223u;
        std::ofstream(folder_ + "/data", std::ios::binary)
            .write(reinterpret_cast<const char *>(words.data()), std::streamsize(words.size() * 4));
        isRunning_ = run("nginx -p " + folder_ + " -c " + folder_ + "/nginx.conf");
    }
    ~Nginx() {
        if (isRunning_) run("nginx -p " + folder_ + " -c " + folder_ + "/nginx.conf -s stop");
        std::error_code ignored;
        std::filesystem::remove_all(folder_, ignored);
    }
    Nginx(const Nginx &) = delete;
    Nginx & operator=(const Nginx &) = delete;

    bool isRunning() const { return isRunning_; }
    const std::string & folder() const { return folder_; }
    static bool run(const std::string & command) {
        return std::system(("PATH=$PATH:/usr/sbin " + command + " >/dev/null 2>&1").c_str()) == 0;
    }

private:
    const std::string folder_ =
        (std::filesystem::temp_directory_path() / ("zmt_http_benchmark_" + std::to_string(::getpid())))
            .string();
    bool isRunning_ = false;
};

std::uint64_t offsetOf(unsigned i) {
    return std::uint64_t(i * 197u % s_fileRanges) * s_range;
}

/// Seconds for `count` ranges; negative when one failed. Twice as many as can be in flight are asked for, as
/// a view does that moves.
double readByFile(AsyncFile & file, unsigned count) {
    const double start = now();
    AsyncFile::Requests requests;
    for (unsigned asked = 0, done = 0; done < count;) {
        for (; asked < count && requests.size() < 2 * s_inFlight; ++asked)
            requests.push_back(file.request(offsetOf(asked), s_range, 1.0));
        AsyncFile::wait(10.0);
        for (std::size_t i = requests.size(); i-- > 0;) {
            const AsyncFile::RequestState state = requests[i]->state();
            if (state == AsyncFile::RS_Failed) return -1.0;
            if (state != AsyncFile::RS_Ready) continue;
            benchmark::DoNotOptimize(requests[i]->data()->pointer());
            file.remove(requests[i]);
            requests.erase(requests.begin() + std::ptrdiff_t(i));
            ++done;
        }
    }
    return now() - start;
}

/// The bare loop: as much as it takes to have the bytes.
class BareLoop {
public:
    double read(unsigned count) {
        const double start = now();
        asked_ = done_ = 0;
        count_ = count;
        for (unsigned i = 0; i < s_inFlight; ++i)
            next();
        while (done_ < count_)
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        return isFailed_ ? -1.0 : now() - start;
    }

private:
    void next() {
        if (asked_ == count_) return;
        const std::uint64_t offset = offsetOf(asked_++);
        QNetworkRequest request(QUrl(QString::fromStdString(s_url)));
        request.setRawHeader("Range", "bytes=" + QByteArray::number(qulonglong(offset)) + "-" +
                                          QByteArray::number(qulonglong(offset + s_range - 1)));
        QNetworkReply * reply = access_.get(request);
        QObject::connect(reply, &QNetworkReply::finished, reply, [this, reply] {
            const QByteArray bytes = reply->readAll();
            isFailed_ = isFailed_ || bytes.size() != int(s_range);
            reply->deleteLater();
            ++done_;
            next();
        });
    }

    QNetworkAccessManager access_;
    unsigned asked_ = 0, done_ = 0, count_ = 0;
    bool isFailed_ = false;
};

double readByCurl(const Nginx & nginx, unsigned count) {
    std::ofstream list(nginx.folder() + "/list");
    for (unsigned i = 0; i < count; ++i)
        list << "next\nurl=" << s_url << "\nrange=" << offsetOf(i) << "-" << offsetOf(i) + s_range - 1
             << "\noutput=/dev/null\n";
    list.close();
    const double start = now();
    return Nginx::run("curl -s --parallel --parallel-max 4 -K " + nginx.folder() + "/list") ? now() - start
                                                                                            : -1.0;
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

void BM_HttpRanges(benchmark::State & state) {
    int count = 1;
    char name[] = "http_benchmark";
    char * names[] = {name, nullptr};
    const QCoreApplication application(count, names);
    const Nginx nginx;
    if (!nginx.isRunning()) {
        state.SkipWithError("nginx does not run");
        return;
    }
    constexpr unsigned ranges = 2000;
    const auto file = AsyncFile::create(std::wstring(s_url.begin(), s_url.end()));
    BareLoop bare;
    std::vector<double> ours, theirs, curls, processors;
    for (auto _ : state) {
        if (!file || readByFile(*file, 100) < 0.0 || bare.read(100) < 0.0) {
            state.SkipWithError("a range failed");
            break;
        }
        for (int round = 0; round < 7; ++round) {
            const double begin = processorTime();
            ours.push_back(readByFile(*file, ranges));
            const double middle = processorTime();
            theirs.push_back(bare.read(ranges));
            processors.push_back((processorTime() - middle) / (middle - begin));
        }
        curls.push_back(readByCurl(nginx, ranges));
    }
    if (ours.empty()) return;
    state.counters["ranges_per_s"] = ranges / median(ours);
    state.counters["bare_ranges_per_s"] = ranges / median(theirs);
    state.counters["of_bare"] = median(theirs) / median(ours);
    state.counters["of_bare_processor"] = median(processors);
    state.counters["curl_ranges_per_s"] = ranges / median(curls);
}
BENCHMARK(BM_HttpRanges)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace
