// Whole downloads against a server that misbehaves on purpose.
#include <filesystem>
#include <gtest/gtest.h>

#include "tests/download/test_support.h"

namespace corvid::download::testing {
namespace {

class Faults : public ::testing::Test {
protected:
    Faults() : content_(RandomBytes(200 * 1024 + 77, 11)) {}

    FaultServer::Policy serveAll() const {
        return [this](const HttpRequest& request, int) { return Reply::Range(content_, request); };
    }

    FaultServer::Policy busyFirst() const {
        return [this](const HttpRequest& request, int number) {
            return number == 0 ? Reply::Status(503, "Busy") : Reply::Range(content_, request);
        };
    }

    // Runs a download of `target` from the given URLs to its end.
    void run(Download& download, const std::vector<std::string>& urls) {
        for (const auto& url : urls) {
            ids_.push_back(download.addSource(url));
        }
        ASSERT_TRUE(download.start(log_.handler()));
        ASSERT_TRUE(RunUntil(context_, [&] { return log_.ended(); }));
    }

    bool succeeded() const {
        const auto codes = log_.codes();
        return codes.size() >= 2 && codes[codes.size() - 2] == EventCode::Succeeded &&
               codes.back() == EventCode::Stopped;
    }
    bool endedWithoutSource() const {
        const auto codes = log_.codes();
        return codes.size() >= 2 && codes[codes.size() - 2] == EventCode::NoValidSource;
    }
    bool sourceSaw(std::size_t index, EventCode code) const {
        const auto codes = log_.codesFor(ids_.at(index));
        return std::find(codes.begin(), codes.end(), code) != codes.end();
    }
    std::string urn() const { return "?" + Sha1Urn(content_); }

    asio::io_context context_;
    TempDir dir_;
    std::string content_;
    EventLog log_;
    std::vector<std::uint32_t> ids_;
};

TEST_F(Faults, ConnectionDroppedMidRangeIsRetried) {
    FaultServer server(context_, [this](const HttpRequest& request, int number) {
        Reply reply = Reply::Range(content_, request);
        if (number == 0 || number == 3) {
            reply.sendBodyBytes = reply.body.size() / 2;
        }
        return reply;
    });
    Download download(context_, dir_.file("f"), FastOptions());
    run(download, {server.url("/f" + urn())});
    EXPECT_TRUE(succeeded());
    EXPECT_TRUE(sourceSaw(0, EventCode::Disconnected));
    EXPECT_TRUE(sourceSaw(0, EventCode::WaitingToRetry));
    EXPECT_EQ(ReadWholeFile(dir_.file("f")), content_);
}

TEST_F(Faults, StalledSourceTimesOutAndItsRangeGoesElsewhere) {
    FaultServer good(context_, serveAll());
    FaultServer stalling(context_, [this](const HttpRequest& request, int) {
        Reply reply = Reply::Range(content_, request);
        reply.sendBodyBytes = 1000;
        reply.stallAfter = true;
        return reply;
    });
    DownloadOptions options = FastOptions();
    options.ioTimeout = std::chrono::milliseconds(300);
    options.stallTime = std::chrono::seconds(60);
    options.maxAttempts = 2;
    Download download(context_, dir_.file("f"), options);
    run(download, {stalling.url(), good.url()});
    EXPECT_TRUE(succeeded());
    EXPECT_TRUE(sourceSaw(0, EventCode::TimedOut));
    EXPECT_EQ(ReadWholeFile(dir_.file("f")), content_);
}

TEST_F(Faults, ServerThatTakesTheRequestAndSaysNothingIsGivenUp) {
    // The silence before an answer begins is bounded by the head time-out, well inside the
    // general one that this download would otherwise wait out.
    FaultServer silent(context_, [](const HttpRequest&, int) {
        Reply reply;
        reply.silent = true;
        return reply;
    });
    DownloadOptions options = FastOptions();
    options.ioTimeout = std::chrono::minutes(10);
    options.headTimeout = std::chrono::milliseconds(100);
    options.maxAttempts = 2;
    Download download(context_, dir_.file("f"), options);
    run(download, {silent.url()});
    EXPECT_EQ(log_.count(EventCode::TimedOut), 2u);
    EXPECT_TRUE(endedWithoutSource());
}

TEST_F(Faults, SilentSourceDoesNotHoldUpTheOthers) {
    FaultServer silent(context_, [](const HttpRequest&, int) {
        Reply reply;
        reply.silent = true;
        return reply;
    });
    FaultServer good(context_, serveAll());
    DownloadOptions options = FastOptions();
    options.ioTimeout = std::chrono::minutes(10);
    options.headTimeout = std::chrono::minutes(10);
    Download download(context_, dir_.file("f"), options);
    run(download, {silent.url(), good.url(), silent.url("/again")});
    EXPECT_TRUE(succeeded()) << "the silent sources' claims, and the first question about the "
                                "length, are taken over once they have been quiet a while";
    EXPECT_EQ(ReadWholeFile(dir_.file("f")), content_);
}

TEST_F(Faults, SlowSourceLosesTheBackOfItsRangeToAFastOne) {
    // The slow source answers its first request with half the bytes, then nothing; the fast
    // one finishes the free bytes, steals, and the download ends before any time-out.
    FaultServer fast(context_, serveAll());
    FaultServer slow(context_, [this](const HttpRequest& request, int) {
        Reply reply = Reply::Range(content_, request);
        reply.sendBodyBytes = reply.body.size() / 8;
        reply.stallAfter = true;
        return reply;
    });
    DownloadOptions options = FastOptions();
    options.minRequest = 4 * 1024;
    options.maxRequest = 64 * 1024;
    options.ioTimeout = std::chrono::seconds(60);
    Download download(context_, dir_.file("f"), options);
    run(download, {slow.url(), fast.url()});
    EXPECT_TRUE(succeeded());
    EXPECT_FALSE(log_.has(EventCode::TimedOut));
    EXPECT_EQ(ReadWholeFile(dir_.file("f")), content_);
}

TEST_F(Faults, RangeThatContradictsTheRequestMakesTheSourceInvalid) {
    FaultServer good(context_, serveAll());
    FaultServer shifted(context_, [this](const HttpRequest& request, int) {
        HttpRequest moved = request;
        moved.range = ByteSpan{request.range->begin + 1, request.range->end + 1};
        return Reply::Range(content_, moved);
    });
    Download download(context_, dir_.file("f"), FastOptions());
    run(download, {shifted.url(), good.url()});
    EXPECT_TRUE(succeeded());
    EXPECT_TRUE(sourceSaw(0, EventCode::InvalidSource));
    EXPECT_EQ(ReadWholeFile(dir_.file("f")), content_);
}

TEST_F(Faults, SourceClaimingAnotherLengthIsInvalid) {
    const std::string longer = content_ + "tail";
    FaultServer good(context_, serveAll());
    FaultServer other(
        context_, [&](const HttpRequest& request, int) { return Reply::Range(longer, request); });
    Download download(context_, dir_.file("f"), FastOptions());
    for (const auto& url : {good.url(), other.url()}) {
        ids_.push_back(download.addSource(url));
    }
    download.start(log_.handler());
    // The good source learns the length first; the other is dropped when it disagrees.
    ASSERT_TRUE(RunUntil(context_, [&] { return log_.ended(); }));
    EXPECT_TRUE(succeeded());
    EXPECT_EQ(std::filesystem::file_size(dir_.file("f")), content_.size());
}

TEST_F(Faults, ServiceUnavailableWaitsAndRetries) {
    FaultServer server(context_, [this](const HttpRequest& request, int number) {
        if (number < 2) {
            return Reply::Status(503, "Busy", "\r\nRetry-After: 1");
        }
        return Reply::Range(content_, request);
    });
    Download download(context_, dir_.file("f"), FastOptions());
    run(download, {server.url()});
    EXPECT_TRUE(succeeded());
    std::vector<std::int64_t> errors;
    for (const auto& event : log_.events()) {
        if (event.code == EventCode::HttpError) {
            errors.push_back(event.number);
        }
    }
    EXPECT_EQ(errors, (std::vector<std::int64_t>{503, 503}));
    EXPECT_EQ(log_.count(EventCode::WaitingToRetry), 2u);
}

TEST_F(Faults, RedirectIsFollowedAndReported) {
    FaultServer real(context_, serveAll());
    FaultServer moved(context_, [&](const HttpRequest&, int) {
        return Reply::Status(302, "Found", "\r\nLocation: " + real.url("/real"));
    });
    Download download(context_, dir_.file("f"), FastOptions());
    run(download, {moved.url()});
    EXPECT_TRUE(succeeded());
    bool reported = false;
    for (const auto& event : log_.events()) {
        reported |= event.code == EventCode::Redirected && event.text == real.url("/real");
    }
    EXPECT_TRUE(reported);
    EXPECT_TRUE(moved.requests().size() == 1);
}

TEST_F(Faults, EndlessRedirectsMakeTheSourceInvalid) {
    FaultServer loop(context_, [](const HttpRequest&, int) {
        return Reply::Status(301, "Moved", "\r\nLocation: /again");
    });
    Download download(context_, dir_.file("f"), FastOptions());
    run(download, {loop.url()});
    EXPECT_TRUE(sourceSaw(0, EventCode::InvalidSource));
    EXPECT_TRUE(endedWithoutSource());
}

TEST_F(Faults, WrongBytesFailTheSha1CheckAndSaySo) {
    FaultServer liar(context_, [this](const HttpRequest& request, int) {
        Reply reply = Reply::Range(content_, request);
        reply.body[reply.body.size() / 2] ^= 0x55;
        return reply;
    });
    Download download(context_, dir_.file("f"), FastOptions());
    run(download, {liar.url("/f" + urn())});
    EXPECT_FALSE(log_.has(EventCode::Succeeded));
    EXPECT_TRUE(endedWithoutSource());
    bool mismatch = false;
    for (const auto& event : log_.events()) {
        mismatch |= event.code == EventCode::HttpError && event.number == kErrorSha1Mismatch;
    }
    EXPECT_TRUE(mismatch);
    EXPECT_FALSE(std::filesystem::exists(download.paths().rangeMap))
        << "bad bytes are not kept for a resume";
}

TEST_F(Faults, WrongBytesAreFoundByCrossCheckingAndFetchedAgain) {
    // One source spoils a few bytes of its second answer; the finished file fails its SHA1,
    // the spans are fetched again from others, and the liar alone is dropped. The honest ones
    // are busy at first, so the liar surely writes; one of them ignores ranges and always sends
    // the whole file.
    FaultServer good1(context_, busyFirst());
    FaultServer good2(context_, [this](const HttpRequest&, int number) {
        if (number == 0) {
            return Reply::Status(503, "Busy");
        }
        Reply reply;
        reply.head = "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(content_.size());
        reply.body = content_;
        return reply;
    });
    FaultServer liar(context_, [this](const HttpRequest& request, int number) {
        Reply reply = Reply::Range(content_, request);
        if (number == 1) {
            reply.body[reply.body.size() / 3] ^= 0x55;
            reply.body[reply.body.size() / 2] ^= 0x55;
        }
        return reply;
    });
    Download download(context_, dir_.file("f"), FastOptions());
    run(download, {good1.url("/f" + urn()), liar.url("/f" + urn()), good2.url("/f" + urn())});
    ASSERT_GE(liar.requests().size(), 2u) << "the liar must have answered twice to have lied";
    EXPECT_TRUE(succeeded());
    EXPECT_EQ(ReadWholeFile(dir_.file("f")), content_);
    EXPECT_TRUE(sourceSaw(1, EventCode::InvalidSource));
    EXPECT_FALSE(sourceSaw(0, EventCode::InvalidSource));
    EXPECT_FALSE(sourceSaw(2, EventCode::InvalidSource));
}

TEST_F(Faults, LiarAmongTwoSourcesCannotBeToldApart) {
    FaultServer good(context_, busyFirst());
    FaultServer liar(context_, [this](const HttpRequest& request, int) {
        Reply reply = Reply::Range(content_, request);
        reply.body[0] ^= 0x55;
        return reply;
    });
    Download download(context_, dir_.file("f"), FastOptions());
    run(download, {good.url("/f" + urn()), liar.url("/f" + urn())});
    EXPECT_FALSE(log_.has(EventCode::Succeeded));
    EXPECT_TRUE(endedWithoutSource());
}

TEST_F(Faults, NotHttpAndNotFoundAreInvalidSources) {
    FaultServer garbage(context_, [](const HttpRequest&, int) {
        Reply reply;
        reply.raw = "SSH-2.0-OpenSSH_9.2\r\n";
        return reply;
    });
    FaultServer missing(context_,
                        [](const HttpRequest&, int) { return Reply::Status(404, "Not Found"); });
    Download download(context_, dir_.file("f"), FastOptions());
    run(download, {garbage.url(), missing.url()});
    EXPECT_TRUE(sourceSaw(0, EventCode::InvalidSource));
    EXPECT_TRUE(sourceSaw(1, EventCode::InvalidSource));
    EXPECT_TRUE(endedWithoutSource());
    EXPECT_EQ(log_.codes().back(), EventCode::Stopped);
}

TEST_F(Faults, HostileHeadAndOversizedBodyDoNoHarm) {
    FaultServer hugeHead(context_, [](const HttpRequest&, int) {
        Reply reply;
        reply.raw = "HTTP/1.1 206 Partial Content\r\nX-Junk: " + std::string(100000, 'j');
        return reply;
    });
    FaultServer overlong(context_, [this](const HttpRequest& request, int) {
        // Claims a body far longer than the range asked for.
        Reply reply = Reply::Range(content_, request);
        reply.head += "0";
        reply.close = true;
        return reply;
    });
    FaultServer good(context_, serveAll());
    Download download(context_, dir_.file("f"), FastOptions());
    run(download, {hugeHead.url(), overlong.url(), good.url()});
    EXPECT_TRUE(succeeded());
    EXPECT_TRUE(sourceSaw(0, EventCode::InvalidSource));
    EXPECT_TRUE(sourceSaw(1, EventCode::InvalidSource));
    EXPECT_EQ(ReadWholeFile(dir_.file("f")), content_);
}

TEST_F(Faults, UnreachableSourcesAreRetriedThenGivenUp) {
    const std::uint16_t closedPort = FreeLoopbackPort();
    DownloadOptions options = FastOptions();
    options.maxAttempts = 3;
    Download download(context_, dir_.file("f"), options);
    run(download,
        {"http://127.0.0.1:" + std::to_string(closedPort) + "/f", "http://no-such-host.invalid/f"});
    const auto first = log_.codesFor(ids_[0]);
    EXPECT_EQ(std::count(first.begin(), first.end(), EventCode::ConnectFailed), 3);
    EXPECT_TRUE(sourceSaw(1, EventCode::ResolveFailed));
    EXPECT_TRUE(endedWithoutSource());
}

TEST_F(Faults, NoSourceAtAllEndsAtOnce) {
    Download download(context_, dir_.file("f"), FastOptions());
    EXPECT_EQ(download.addSource("ftp://a/b"), 0u);
    EXPECT_EQ(download.addSource("not a url"), 0u);
    run(download, {});
    EXPECT_EQ(log_.codes(), (std::vector<EventCode>{EventCode::Started, EventCode::NoValidSource,
                                                    EventCode::Stopped}));
}

TEST_F(Faults, SourcesNamingAnotherFileAreRefused) {
    Download download(context_, dir_.file("f"), FastOptions());
    EXPECT_NE(download.addSource("http://a/uri-res/N2R?" + Sha1Urn("one")), 0u);
    EXPECT_EQ(download.addSource("http://b/uri-res/N2R?" + Sha1Urn("two")), 0u);
    EXPECT_NE(download.addSource("http://c/plain"), 0u);
}

TEST_F(Faults, StopAbortsWithUserAbortThenStopped) {
    FaultServer stalling(context_, [this](const HttpRequest& request, int) {
        Reply reply = Reply::Range(content_, request);
        reply.sendBodyBytes = 10;
        reply.stallAfter = true;
        return reply;
    });
    Download download(context_, dir_.file("f"), FastOptions());
    ids_.push_back(download.addSource(stalling.url()));
    download.start(log_.handler());
    ASSERT_TRUE(RunUntil(context_, [&] { return log_.has(EventCode::ReceivingData); }));
    EXPECT_EQ(download.info(InfoCode::Transferring), 1);
    download.stop();
    ASSERT_TRUE(RunUntil(context_, [&] { return log_.ended(); }));
    const auto codes = log_.codes();
    EXPECT_EQ(codes[codes.size() - 2], EventCode::UserAborted);
    EXPECT_EQ(download.info(InfoCode::Transferring), 0);
    EXPECT_EQ(download.addSource(stalling.url("/later")), 0u) << "ended downloads take no source";
}

TEST_F(Faults, SourceAddedWhileRunningJoinsTheSwarm) {
    FaultServer stalling(context_, [this](const HttpRequest& request, int) {
        Reply reply = Reply::Range(content_, request);
        reply.sendBodyBytes = 0;
        reply.stallAfter = true;
        return reply;
    });
    FaultServer good(context_, serveAll());
    DownloadOptions options = FastOptions();
    options.ioTimeout = std::chrono::milliseconds(500);
    Download download(context_, dir_.file("f"), options);
    ids_.push_back(download.addSource(stalling.url()));
    download.start(log_.handler());
    ASSERT_TRUE(RunUntil(context_, [&] { return log_.has(EventCode::HeaderReceived); }));
    ids_.push_back(download.addSource(good.url()));
    ASSERT_TRUE(RunUntil(context_, [&] { return log_.ended(); }));
    EXPECT_TRUE(succeeded());
    EXPECT_TRUE(sourceSaw(1, EventCode::ReceivingData));
    EXPECT_EQ(ReadWholeFile(dir_.file("f")), content_);
}

TEST_F(Faults, ResumeAfterCloseAsksOnlyForMissingBytes) {
    int served = 0;
    FaultServer server(context_, [&](const HttpRequest& request, int) {
        Reply reply = Reply::Range(content_, request);
        if (++served > 3) {
            reply.sendBodyBytes = 0;
            reply.stallAfter = true;
        }
        return reply;
    });
    {
        EventLog first;
        Download download(context_, dir_.file("f"), FastOptions());
        download.addSource(server.url("/f" + urn()));
        download.start(first.handler());
        ASSERT_TRUE(RunUntil(context_, [&] { return first.count(EventCode::Received) >= 3; }));
        download.close();
        ASSERT_TRUE(RunUntil(context_, [&] { return first.ended(); }));
    }
    const auto map = ParseRangeMap(ReadWholeFile(dir_.file("f") + ".ranges"));
    ASSERT_TRUE(map);
    RangeSet done;
    for (ByteSpan span : map->done) {
        done.add(span);
    }
    ASSERT_GE(done.total(), 3u * 16 * 1024);

    FaultServer fresh(context_, serveAll());
    Download download(context_, dir_.file("f"), FastOptions());
    run(download, {fresh.url("/f" + urn())});
    EXPECT_TRUE(succeeded());
    EXPECT_EQ(ReadWholeFile(dir_.file("f")), content_);
    for (const auto& event : log_.events()) {
        if (event.code == EventCode::FileLength) {
            EXPECT_EQ(event.words[0], content_.size());
            EXPECT_EQ(event.words[2], done.total()) << "bytes already on disk";
        }
    }
    for (const auto& request : fresh.requests()) {
        ASSERT_TRUE(request.range);
        EXPECT_FALSE(done.intersects(*request.range))
            << "asked again for " << request.range->begin << "-" << request.range->end;
    }
}

TEST_F(Faults, ResumeAfterACrashTrustsTheLastSavedMap) {
    const std::string mapPath = dir_.file("f") + ".ranges";
    RangeSet saved;
    {
        // A process that dies: its context is dropped with the download still running, so
        // nothing after the last periodic save reaches the disk's map.
        asio::io_context doomed;
        int served = 0;
        FaultServer server(doomed, [&](const HttpRequest& request, int) {
            Reply reply = Reply::Range(content_, request);
            if (++served > 4) {
                reply.sendBodyBytes = reply.body.size() / 3;
                reply.stallAfter = true;
            }
            return reply;
        });
        EventLog first;
        Download download(doomed, dir_.file("f"), FastOptions());
        download.addSource(server.url("/f" + urn()));
        download.start(first.handler());
        ASSERT_TRUE(RunUntil(doomed, [&] {
            const auto map = ParseRangeMap(ReadWholeFile(mapPath));
            return map && map->done.size() == 1 && map->done[0].end >= 4u * 16 * 1024;
        }));
        const auto map = ParseRangeMap(ReadWholeFile(mapPath));
        for (ByteSpan span : map->done) {
            saved.add(span);
        }
    }
    FaultServer fresh(context_, serveAll());
    Download download(context_, dir_.file("f"), FastOptions());
    run(download, {fresh.url("/f" + urn())});
    EXPECT_TRUE(succeeded());
    EXPECT_EQ(ReadWholeFile(dir_.file("f")), content_);
    for (const auto& request : fresh.requests()) {
        EXPECT_FALSE(saved.intersects(*request.range))
            << "asked again for " << request.range->begin << "-" << request.range->end;
    }
}

TEST_F(Faults, ForgetRemovesTheRangeMap) {
    FaultServer stalling(context_, [this](const HttpRequest& request, int number) {
        Reply reply = Reply::Range(content_, request);
        if (number > 0) {
            reply.sendBodyBytes = 0;
            reply.stallAfter = true;
        }
        return reply;
    });
    Download download(context_, dir_.file("f"), FastOptions());
    download.addSource(stalling.url());
    download.start(log_.handler());
    ASSERT_TRUE(RunUntil(context_, [&] { return log_.has(EventCode::Received); }));
    download.forget();
    ASSERT_TRUE(RunUntil(context_, [&] { return log_.ended(); }));
    EXPECT_FALSE(std::filesystem::exists(download.paths().rangeMap));
}

} // namespace
} // namespace corvid::download::testing

namespace corvid::download::testing {
namespace {

// The range answer again, its body in chunks of uneven sizes, without a Content-Length.
Reply Chunked(Reply reply) {
    if (reply.body.empty()) {
        return reply;
    }
    const std::size_t cut = reply.head.find("\r\nContent-Length:");
    reply.head = reply.head.substr(0, cut) + "\r\nTransfer-Encoding: chunked";
    std::string body;
    for (std::size_t at = 0, turn = 0; at < reply.body.size(); ++turn) {
        const std::size_t size = std::min<std::size_t>(reply.body.size() - at, 1 + turn * 997);
        char line[32];
        std::snprintf(line, sizeof line, "%zx%s\r\n", size, turn == 2 ? ";x=1" : "");
        body += line + reply.body.substr(at, size) + "\r\n";
        at += size;
    }
    reply.body = body + "0\r\n\r\n";
    return reply;
}

TEST_F(Faults, ChunkedRangesAreReadWholeOverKeptAliveConnections) {
    FaultServer server(context_, [this](const HttpRequest& request, int) {
        return Chunked(Reply::Range(content_, request));
    });
    Download download(context_, dir_.file("f"), FastOptions());
    run(download, {server.url("/f" + urn())});
    EXPECT_TRUE(succeeded());
    EXPECT_EQ(ReadWholeFile(dir_.file("f")), content_);
    EXPECT_GT(server.requests().size(), 1u);
}

TEST_F(Faults, ABrokenChunkIsAProtocolErrorOfThatSource) {
    FaultServer server(context_, [this](const HttpRequest& request, int number) {
        Reply reply = Chunked(Reply::Range(content_, request));
        if (number == 1) {
            // Data that runs past its chunk's size.
            const std::size_t end = reply.body.find("\r\n", reply.body.find("\r\n") + 2);
            reply.body.insert(end, "xyz");
        }
        return reply;
    });
    Download download(context_, dir_.file("f"), FastOptions());
    run(download, {server.url("/f" + urn())});
    EXPECT_TRUE(sourceSaw(0, EventCode::HttpError));
    EXPECT_TRUE(endedWithoutSource());
}

} // namespace
} // namespace corvid::download::testing
