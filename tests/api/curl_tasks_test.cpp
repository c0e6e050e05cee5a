#include "tests/api/curl_client.h"
#include "tests/support/loopback_server.h"

#include <condition_variable>
#include <mutex>

namespace quomi {
namespace {

using quomi::testing::LoopbackServer;
using quomi::testing::RawServer;
using quomi::testing::ReceivedRequest;

HttpRequest getRequest(std::string url) {
    return {"GET", std::move(url), {}, ""};
}

/// Keeps what is posted until it is asked to run it.
class HeldLoop final : public RunLoop {
public:
    void post(Task task) override {
        const std::lock_guard lock(mutex_);
        posted_.push_back(std::move(task));
        changed_.notify_one();
    }
    void postToGlobalQueue(Task task) override { post(std::move(task)); }
    std::unique_ptr<Timer> scheduleOnce(Duration, Task) override { return nullptr; }
    std::unique_ptr<Timer> scheduleRepeating(Duration, Task) override { return nullptr; }
    [[nodiscard]] bool isHostThread() const override { return true; }
    bool runOneSource() override { return false; }

    std::vector<Task> takeWhenPosted(std::size_t count) {
        std::unique_lock lock(mutex_);
        EXPECT_TRUE(changed_.wait_for(lock, 5s, [&] { return posted_.size() >= count; }));
        return std::exchange(posted_, {});
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<Task> posted_;
};

/// Where a number of threads wait for each other.
class Gathering {
public:
    explicit Gathering(int expected) : missing_(expected) {}

    /// Waits until all have joined; false after three seconds.
    bool join() {
        std::unique_lock lock(mutex_);
        --missing_;
        changed_.notify_all();
        return changed_.wait_for(lock, 3s, [this] { return missing_ <= 0; });
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    int missing_;
};

TEST(CurlTasks, DroppingATaskInFlightClosesItsConnection) {
    RawServer server("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nhalf", RawServer::Afterwards::hold);
    CurlClient client;
    const auto held = std::make_shared<int>(0);
    auto task = client.transport.send(getRequest(server.url()), [held](const HttpResult&) { FAIL(); });
    EXPECT_NE(server.lastRequest(), "");
    task.reset();
    EXPECT_EQ(held.use_count(), 1) << "what the completion holds ends with its task";
    EXPECT_TRUE(server.waitForClientToLeave());
    client.loop.runUntilIdle();
}

TEST(CurlTasks, AnswersThatAreAlreadyPostedAreForgotten) {
    RawServer server("HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok");
    HeldLoop loop;
    auto transport = std::make_unique<CurlTransport>(loop);
    int completions = 0;
    const auto count = [&completions](const HttpResult&) { ++completions; };

    auto dropped = transport->send(getRequest(server.url()), count);
    auto kept = transport->send(getRequest(server.url()), count);
    auto posted = loop.takeWhenPosted(2);
    dropped.reset();
    for (const Task& task : posted) task();
    EXPECT_EQ(completions, 1);

    auto orphan = transport->send(getRequest(server.url()), count);
    posted = loop.takeWhenPosted(1);
    transport.reset();
    for (const Task& task : posted) task();
    EXPECT_EQ(completions, 1);
    orphan.reset();
}

TEST(CurlTasks, TasksAndTransportMayBeDroppedInsideACompletion) {
    RawServer server("HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok");
    RawServer silent("", RawServer::Afterwards::hold);
    posix::RunLoop loop;
    auto transport = std::make_unique<CurlTransport>(loop);
    auto other = transport->send(getRequest(silent.url()), [](const HttpResult&) { FAIL(); });
    std::unique_ptr<HttpTask> own;
    bool tasksDropped = false;
    bool transportDropped = false;
    own = transport->send(getRequest(server.url()), [&](const HttpResult& result) {
        EXPECT_EQ(outcome(result), 200);
        own.reset();
        other.reset();
        tasksDropped = true;
        own = transport->send(getRequest(server.url()), [&](const HttpResult& next) {
            EXPECT_EQ(outcome(next), 200);
            transport.reset();
            transportDropped = true;
        });
    });
    EXPECT_TRUE(loop.runUntil([&] { return transportDropped; }, 5s));
    EXPECT_TRUE(tasksDropped);
}

TEST(CurlTasks, TransportEndsAtOnceWithRequestsInFlight) {
    RawServer silent("", RawServer::Afterwards::hold);
    for (int connected = 0; connected < 2; ++connected) {
        posix::RunLoop loop;
        auto transport = std::make_unique<CurlTransport>(loop);
        std::vector<std::unique_ptr<HttpTask>> tasks;
        for (int i = 0; i < 20; ++i) {
            const std::string url = i % 2 == 0 ? silent.url() : "http://name-of-nobody.invalid/";
            tasks.push_back(transport->send(getRequest(url), [](const HttpResult&) { FAIL(); }));
        }
        if (connected == 1) {
            EXPECT_NE(silent.lastRequest(), "");
        }
        const auto begin = std::chrono::steady_clock::now();
        transport.reset();
        EXPECT_LT(std::chrono::steady_clock::now() - begin, 1s);
        loop.runUntilIdle();
    }
}

TEST(CurlTasks, EachRequestStartsAtOnceAndGetsItsOwnAnswer) {
    constexpr int count = 6;
    Gathering gathering(count);
    LoopbackServer server([&](const ReceivedRequest& request) {
        return HttpResponse{gathering.join() ? 200 : 500, {}, request.target};
    });
    CurlClient client;
    std::vector<std::unique_ptr<HttpTask>> tasks;
    std::vector<std::string> bodies(count);
    int done = 0;
    for (std::size_t i = 0; i < bodies.size(); ++i) {
        const auto keep = [&bodies, &done, &client, i](const HttpResult& result) {
            EXPECT_TRUE(client.loop.isHostThread());
            EXPECT_EQ(outcome(result), 200) << "not all requests were under way at the same time";
            bodies[i] = bodyOf(result);
            ++done;
        };
        tasks.push_back(client.transport.send(getRequest(server.url("/" + std::to_string(i))), keep));
    }
    EXPECT_TRUE(client.loop.runUntil([&] { return done == count; }, 10s));
    for (std::size_t i = 0; i < bodies.size(); ++i) EXPECT_EQ(bodies[i], "/" + std::to_string(i));
}

TEST(CurlTasks, ManyRequestsAtOnceAllEnd) {
    constexpr int count = 60;
    RawServer server("HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok");
    CurlClient client;
    std::vector<std::unique_ptr<HttpTask>> tasks;
    int answers = 0;
    for (int i = 0; i < count; ++i) {
        const auto keep = [&answers](const HttpResult& result) { answers += outcome(result) == 200 ? 1 : 0; };
        tasks.push_back(client.transport.send(getRequest(server.url()), keep));
        if (i % 3 == 2) tasks[static_cast<std::size_t>(i - 1)].reset();
    }
    EXPECT_TRUE(client.loop.runUntil([&] { return answers == count * 2 / 3; }, 10s)) << answers;
}

}  // namespace
}  // namespace quomi
