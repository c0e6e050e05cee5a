// A server that means harm, against the real transport: whatever it sends, the request ends in time, the memory stays
// bounded, and the transport goes at once.
#include "tests/api/curl_client.h"
#include "tests/support/loopback_server.h"

#include <zlib.h>

namespace quomi {
namespace {

using quomi::testing::RawServer;
using Script = std::function<void(const RawServer::Send&)>;
using Clock = std::chrono::steady_clock;

constexpr auto kTimeout = 300ms;
constexpr long kMegabyte = 1024;  // in kilobytes, as /proc counts

/// Greatest resident set since the last `forgetPeak`, in kilobytes.
long peakKilobytes() {
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
        long kilobytes = 0;
        if (word == "VmHWM:" && status >> kilobytes) return kilobytes;
    }
    return 0;
}
void forgetPeak() {
    std::ofstream("/proc/self/clear_refs") << 5;
}

std::string gzip(std::string_view text, int flush = Z_FINISH, int windowBits = 16 + MAX_WBITS) {
    z_stream stream{};
    deflateInit2(&stream, Z_BEST_SPEED, Z_DEFLATED, windowBits, 8, Z_DEFAULT_STRATEGY);
    std::string zipped(compressBound(static_cast<uLong>(text.size())) + 64, '\0');
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
    stream.avail_in = static_cast<uInt>(text.size());
    stream.next_out = reinterpret_cast<Bytef*>(zipped.data());
    stream.avail_out = static_cast<uInt>(zipped.size());
    deflate(&stream, flush);
    zipped.resize(stream.total_out);
    deflateEnd(&stream);
    return zipped;
}

std::string repeat(std::string_view text, std::size_t count) {
    std::string all;
    all.reserve(text.size() * count);
    while (count-- > 0) all += text;
    return all;
}

const std::string kGzipHead("\x1f\x8b\x08\0\0\0\0\0\0\x03", 10);
const std::string kHollowBlock("\0\0\0\xff\xff", 5);

/// A few hundred bytes: gzip in gzip in gzip around gigabytes of gzip that says nothing.
std::string nestedHollow() {
    const auto piece = gzip(repeat(kHollowBlock, 200'000), Z_FULL_FLUSH, -MAX_WBITS);  // without head, may be repeated
    return gzip(gzip(kGzipHead + repeat(piece, 3000)));
}

std::string answer(const std::string& headers, const std::string& body) {
    return fmt::format("HTTP/1.1 200 OK\r\n{}Content-Length: {}\r\n\r\n{}", headers, body.size(), body);
}
Script once(const std::string& bytes) {
    return [bytes](const RawServer::Send& send) { send(bytes, 0ms); };
}
/// Begins, and then goes on for ever, as fast as it is read or with pauses.
Script forever(const std::string& begin, const std::string& more, std::chrono::milliseconds pause = 0ms) {
    return [=](const RawServer::Send& send) {
        const auto piece = pause == 0ms ? repeat(more, 1 + 65536 / more.size()) : more;
        if (!send(begin, 0ms)) return;
        while (send(piece, pause)) {
        }
    };
}
Script drip(const std::string& bytes, std::chrono::milliseconds pause) {
    return [=](const RawServer::Send& send) {
        for (const char& byte : bytes) {
            if (!send({&byte, 1}, pause)) return;
        }
    };
}
Script silence(const std::string& bytes) {
    return [=](const RawServer::Send& send) {
        if (send(bytes, 0ms)) send("late", 10s);
    };
}

const std::string kZipped = "Content-Encoding: gzip\r\n";
const std::string kOk = "HTTP/1.1 200 OK\r\n";
const std::string kChunked = kOk + "Transfer-Encoding: chunked\r\n";

struct Case {
    const char* name;
    Script script;
    int expected = 0;  ///< status or negated kind of failure; 0: whatever it is
    std::chrono::milliseconds atMost = 1000ms;
    const char* message = "";
};
void PrintTo(const Case& given, std::ostream* out) {
    *out << given.name;
}

class HostileServer : public ::testing::TestWithParam<Case> {};

TEST_P(HostileServer, EndsInTimeAndMemory) {
    const auto& given = GetParam();
    RawServer server(given.script);
    auto client = std::make_unique<CurlClient>();
    forgetPeak();
    const long before = peakKilobytes();
    const auto begin = Clock::now();
    const HttpResult result = client->fetch({"GET", server.url(), {}, "", kTimeout});
    EXPECT_LT(Clock::now() - begin, given.atMost);
    EXPECT_LT(peakKilobytes() - before, 64 * kMegabyte);
    if (given.expected != 0) {
        EXPECT_EQ(outcome(result), given.expected) << messageOf(result);
    }
    EXPECT_THAT(messageOf(result), HasSubstr(given.message));

    // The same again, and the app ends meanwhile.
    const auto task = client->transport.send({"GET", server.url(), {}, "", kTimeout}, {});
    std::this_thread::sleep_for(20ms);
    const auto end = Clock::now();
    client.reset();
    EXPECT_LT(Clock::now() - end, 100ms);
}

const Case kCases[] = {
    // Compression
    {"StackedCompression", once(answer("Content-Encoding: gzip, gzip, gzip\r\n", nestedHollow())), kConnectionFailed},
    {"CompressionStackedOverLines", once(answer(kZipped + kZipped + kZipped, nestedHollow())), kConnectionFailed},
    {"StackedTransferCoding",
     once(kOk + "Transfer-Encoding: gzip, gzip, gzip\r\nConnection: close\r\n\r\n" + nestedHollow()),
     kConnectionFailed},
    {"TransferCodingAtTheEnd",
     once(kChunked + "Transfer-Encoding: gzip\r\n\r\n5\r\n" + nestedHollow().substr(0, 5) + "\r\n0\r\n\r\n"),
     kConnectionFailed},
    {"HollowCompressionWithoutEnd", forever(kOk + kZipped + "\r\n" + kGzipHead, kHollowBlock), kUnusable},
    {"HollowMembersWithoutEnd", forever(kOk + kZipped + "\r\n", gzip("")), kUnusable},
    {"GrowingAnswer", once(answer(kZipped, gzip(repeat("[0,0,0,", 9 << 20)))), kUnusable, 2000ms,
     "The answer is longer than 16777216 bytes"},
    {"CompressionCutShort", once(answer(kZipped, gzip(repeat("banana ", 300)).substr(0, 30))), kConnectionFailed,
     1000ms, "ended before its end"},
    {"CompressionWithoutAnything", once(answer(kZipped, kGzipHead)), kConnectionFailed},
    {"CompressionWithAFalseSum", once(answer(kZipped, gzip("banana").replace(gzip("banana").size() - 8, 4, "sum!"))),
     kConnectionFailed},
    {"CompressionWithGarbageBehind", once(answer(kZipped, gzip("banana") + "garbage")), kConnectionFailed},
    {"CompressionOfTwoMembers", once(answer(kZipped, gzip("banana") + gzip(" split"))), 200},
    {"NameInTheCompressionWithoutEnd",
     forever(kOk + kZipped + "\r\n" + std::string("\x1f\x8b\x08\x08\0\0\0\0\0\x03", 10), "name"), kUnusable},
    {"CodingThatWasNotAskedFor", once(answer("Content-Encoding: br\r\n", "\x0b\x02\x80hello\x03")), kConnectionFailed},
    // Slowness
    {"SteadyButSlow", drip(answer("", "steady"), 20ms), 200, 2500ms},
    {"SlowLoris", forever(kOk + "\r\n", "x", 50ms), kTimedOut, 3800ms, "The request took 3 seconds"},
    {"SlowLorisInAHeader", forever(kOk + "X-Loris: ", "x", 50ms), kTimedOut, 3800ms},
    {"SilenceAfterTheHeaders", silence(kOk + "Content-Length: 4\r\n\r\n"), kTimedOut, 1000ms,
     "The server was silent for 0.3 seconds"},
    {"SilenceWithinTheCompression", silence(kOk + kZipped + "\r\n" + kGzipHead + kHollowBlock), kTimedOut},
    {"NothingAtAll", silence(""), kTimedOut},
    // Length
    {"BodyWithoutEnd", forever(kOk + "\r\n", "0,"), kUnusable},
    {"ChunksWithoutEnd", forever(kChunked + "\r\n", "1\r\nx\r\n"), kUnusable, 3800ms},
    {"AnnouncedLength", once(kOk + "Content-Length: 99999999999\r\n\r\n"), kUnusable},
    {"HeadersWithoutEnd", forever(kOk, "X-Header: more\r\n"), kUnusable, 1000ms, "The headers of the answer"},
    {"OneHeaderWithoutEnd", forever(kOk + "X-Header: ", "more"), 0},
    {"TrailersWithoutEnd", forever(kChunked + "\r\n1\r\n1\r\n0\r\n", "X-Trailer: more\r\n"), 0},
    {"InterimAnswersWithoutEnd", forever("", "HTTP/1.1 100 Continue\r\n\r\n"), 0},
    {"StatusLineWithoutEnd", forever("HTTP/1.1 200 ", "OK"), 0},
    {"ChunkExtensionWithoutEnd", forever(kChunked + "\r\n5;", "extension"), 0, 3800ms},
    // Forms
    {"ChunkOfGreatLength", once(kChunked + "\r\nFFFFFFFFFFFFFFFFFF\r\nx"), kConnectionFailed},
    {"TwoLengths", once(kOk + "Content-Length: 3\r\nContent-Length: 5\r\n\r\nabcde"), 0},
    {"NegativeLength", once(kOk + "Content-Length: -1\r\n\r\nabcde"), 0},
    {"LengthBeyondAnyNumber", once(kOk + "Content-Length: 99999999999999999999999\r\n\r\nx"), 0},
    {"ZeroByteInAHeader", once(kOk + std::string("X: a\0b\r\n", 8) + "Content-Length: 0\r\n\r\n"), 0},
    {"StatusOfManyDigits", once("HTTP/1.1 20000 OK\r\nContent-Length: 0\r\n\r\n"), 0},
    {"OldestProtocol", once("<html>no headers at all</html>"), kConnectionFailed},
    {"OtherProtocol", once("HTTP/2 200\r\n\r\n"), 0},
    {"RedirectToItselfGrowing",
     [](const RawServer::Send& send) {
         send("HTTP/1.1 302 Found\r\nLocation: ?" + std::string(60'000, 'x') + "\r\nContent-Length: 0\r\n\r\n", 0ms);
     },
     302},
    {"RedirectWithABodyWithoutEnd", forever("HTTP/1.1 302 Found\r\nLocation: /\r\n\r\n", "moved "), kUnusable},
};

INSTANTIATE_TEST_SUITE_P(Every, HostileServer, ::testing::ValuesIn(kCases),
                         [](const auto& given) { return given.param.name; });

TEST(HostileServer, DroppingTheTransportWhileItInflatesTakesNoTime) {
    RawServer server(forever(kOk + kZipped + "\r\n" + kGzipHead, kHollowBlock));
    CurlTransportOptions options;
    options.maxResponseBytes = std::uint64_t{1} << 40;
    for (int i = 0; i < 10; ++i) {
        auto client = std::make_unique<CurlClient>(options);
        const auto task = client->transport.send({"GET", server.url(), {}, "", 25s}, {});
        std::this_thread::sleep_for(30ms);
        const auto begin = Clock::now();
        client.reset();
        EXPECT_LT(Clock::now() - begin, 100ms);
    }
}

}  // namespace
}  // namespace quomi
