// The memory that a download of 100,000 geofences takes, in a process of its own: the response's bytes and the greatest
// growth of the resident set, on one line.

#include "bench/bench_store.h"

#include <cstdio>
#include <fstream>
#include <utility>

namespace {

constexpr int kGeofences = 100'000;

/// A line of /proc/self/status, in bytes.
long long statusBytes(const std::string& name) {
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
        long long kilobytes = 0;
        if (word == name && status >> kilobytes) return kilobytes * 1024;
    }
    return 0;
}

}  // namespace

int main() {
    quomi::bench::BenchStore store;
    const auto before = statusBytes("VmRSS:");
    auto answer = quomi::bench::geofencesAnswer(kGeofences);
    const std::size_t size = answer.size();
    if (!store.download(std::move(answer))) return 1;
    std::printf("%zu %lld\n", size, statusBytes("VmHWM:") - before);
    return 0;
}
