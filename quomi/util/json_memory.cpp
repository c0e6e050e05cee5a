#include "quomi/util/json_memory.h"

#include <new>

namespace quomi {

void JsonMemory::take(std::size_t bytes) {
    if (bytes > left_) {
        isExceeded_ = true;
        throw std::bad_alloc();
    }
    left_ -= bytes;
}

void* JsonMemory::do_allocate(std::size_t bytes, std::size_t alignment) {
    if (void* place = std::align(alignment, bytes, free_, freeBytes_)) {
        free_ = static_cast<std::byte*>(place) + bytes;
        freeBytes_ -= bytes;
        return place;
    }
    // What is large gets a piece of its own, so that no piece is left half empty.
    const bool isLarge = bytes > pieceSize_ / 4;
    const std::size_t size = isLarge ? bytes : pieceSize_;
    take(size);
    pieces_.push_back(std::unique_ptr<std::byte[]>(new std::byte[size]));
    std::byte* place = pieces_.back().get();
    if (isLarge) return place;
    free_ = place + bytes;
    freeBytes_ = size - bytes;
    return place;
}

void* JsonMemory::Temporary::do_allocate(std::size_t bytes, std::size_t /*alignment*/) {
    memory_.take(bytes);
    return ::operator new(bytes);
}

void JsonMemory::Temporary::do_deallocate(void* memory, std::size_t bytes, std::size_t /*alignment*/) {
    memory_.left_ += bytes;
    ::operator delete(memory);
}

}  // namespace quomi
