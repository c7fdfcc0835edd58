#pragma once

#include <cstdlib>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include <nbx/object/nbxtime.h>
#include <zmt/core/misc/asyncfile.h>
#include <zmt/core/misc/httpsettings.h>

#include "core/http/httptimes.h"
#include "core/misc/asyncfilemanager.h"
#include "support/scriptedhttpserver.h"
#include "support/web/webapplication.h"

/// Tests of what comes from web servers: an application object for the suite, short spans of time, no proxies
/// and no logins but those of the test, and a server.
class WebTest : public testing::Test {
protected:
    static void SetUpTestSuite() { application_ = std::make_unique<WebApplication>(); }
    static void TearDownTestSuite() { application_.reset(); }

    void SetUp() override {
        for (const char * name :
             {"http_proxy", "https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY", "no_proxy", "NO_PROXY"})
            ::unsetenv(name);
        ::setenv("NETRC", "/dev/null", 1);
        ZMT::CORE::IMPL::AsyncFileManager::instance().backoff() = {};
        ZMT::CORE::IMPL::AsyncFileManager::instance().logins() = {};
        ZMT::CORE::IMPL::HttpTimes & times = ZMT::CORE::IMPL::httpTimes();
        times = {};
        times.silenceMilliseconds = 400;
        times.firstPause = 0.02;
        times.longestPause = 0.2;
    }
    void TearDown() override {
        ZMT::CORE::IMPL::httpTimes() = {};
        ZMT::CORE::HttpSettings::setFollowsRedirects(false);
    }

    /// Runs the event loop until `isReached()` says so; false when it does not within some seconds.
    template <class F> static bool runUntil(F isReached, double seconds = 5.0) {
        const double end = NBX::NBXTime::now() + seconds;
        while (!isReached()) {
            if (NBX::NBXTime::now() > end) return false;
            ZMT::CORE::AsyncFile::wait(10.0);
            WebApplication::processEvents();
        }
        return true;
    }
    static void runFor(double seconds) {
        runUntil([] { return false; }, seconds);
    }
    /// As `runUntil` the request is ready or has failed.
    static bool runUntilDone(ZMT::CORE::AsyncFile::Request & request) {
        return runUntil([&] {
            return request.state() == ZMT::CORE::AsyncFile::RS_Ready ||
                   request.state() == ZMT::CORE::AsyncFile::RS_Failed;
        });
    }

    static std::string bytesOf(const ZMT::CORE::AsyncFile::Request & request) {
        const NBX::SO<NBX::DataResource> data = request.data();
        return {static_cast<const char *>(data->pointer()), data->size()};
    }
    /// Bytes none of which looks like its neighbours.
    static std::string pattern(std::size_t size) {
        std::string bytes(size, '\0');
        for (std::size_t i = 0; i < size; ++i)
            bytes[i] = static_cast<char>(i * 167 + i / 251);
        return bytes;
    }

    ScriptedHttpServer server_;

private:
    static inline std::unique_ptr<WebApplication> application_;
};
