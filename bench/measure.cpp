#include "bench/measure.h"

#include <ctime>
#include <malloc.h>

namespace quomi::bench {

double processorSeconds() {
    return static_cast<double>(std::clock()) / CLOCKS_PER_SEC;
}

std::size_t heapInUse() {
    const auto heap = ::mallinfo2();
    return heap.uordblks + heap.hblkhd;
}

}  // namespace quomi::bench
