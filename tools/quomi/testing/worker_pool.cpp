#include "tools/quomi/testing/worker_pool.h"

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

namespace quomi::tool {

void inOrder(std::size_t count, unsigned threads, const std::function<void(std::size_t)>& work,
             const std::function<void(std::size_t)>& tell) {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<bool> done(count, false);
    std::size_t next = 0;
    const auto workOn = [&] {
        for (std::unique_lock lock(mutex); next < count;) {
            const auto mine = next++;
            lock.unlock();
            work(mine);
            lock.lock();
            done[mine] = true;
            changed.notify_one();
        }
    };
    std::vector<std::jthread> workers;
    for (std::size_t i = 0; i < std::min<std::size_t>(threads, count); ++i) workers.emplace_back(workOn);
    for (std::size_t i = 0; i < count; ++i) {
        {
            std::unique_lock lock(mutex);
            changed.wait(lock, [&] { return done[i]; });
        }
        tell(i);
    }
}

}  // namespace quomi::tool
