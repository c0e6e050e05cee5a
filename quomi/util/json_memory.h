#pragma once

#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

#include <boost/json/memory_resource.hpp>

namespace quomi {

/// Memory of a bounded size for reading one JSON text. One thread.
///
/// The value lives in large pieces that go all at once with the last value that uses them; what the reader needs
/// meanwhile counts too, and comes back.
class JsonMemory final : public boost::json::memory_resource {
public:
    /// Takes no more than that, in pieces of at least the other size.
    JsonMemory(std::size_t maxBytes, std::size_t pieceSize) : left_(maxBytes), pieceSize_(pieceSize) {}
    JsonMemory(const JsonMemory&) = delete;
    JsonMemory& operator=(const JsonMemory&) = delete;

    /// Memory for the reader itself, out of the same bound. Lives no longer than this one.
    [[nodiscard]] boost::json::memory_resource& temporary() { return temporary_; }
    /// Whether more was asked for.
    [[nodiscard]] bool isExceeded() const { return isExceeded_; }
    /// The text is read: whoever goes on with its value may add to it freely.
    void liftBound() { left_ = static_cast<std::size_t>(-1) / 2; }  // the reader still gives some back

private:
    class Temporary final : public boost::json::memory_resource {
    public:
        explicit Temporary(JsonMemory& memory) : memory_(memory) {}

    private:
        void* do_allocate(std::size_t bytes, std::size_t alignment) override;
        void do_deallocate(void* memory, std::size_t bytes, std::size_t alignment) override;
        [[nodiscard]] bool do_is_equal(const boost::json::memory_resource& other) const noexcept override {
            return this == &other;
        }
        JsonMemory& memory_;
    };

    void take(std::size_t bytes);
    void* do_allocate(std::size_t bytes, std::size_t alignment) override;
    void do_deallocate(void* /*memory*/, std::size_t /*bytes*/, std::size_t /*alignment*/) override {}
    [[nodiscard]] bool do_is_equal(const boost::json::memory_resource& other) const noexcept override {
        return this == &other;
    }

    std::size_t left_;
    const std::size_t pieceSize_;
    bool isExceeded_ = false;
    std::vector<std::unique_ptr<std::byte[]>> pieces_;
    void* free_ = nullptr;
    std::size_t freeBytes_ = 0;
    Temporary temporary_{*this};
};

/// What values hold: keeps the memory for as long as one of them lives.
class SharedJsonMemory final : public boost::json::memory_resource {
public:
    explicit SharedJsonMemory(std::shared_ptr<JsonMemory> memory) : memory_(std::move(memory)) {}

private:
    void* do_allocate(std::size_t bytes, std::size_t alignment) override { return memory_->allocate(bytes, alignment); }
    void do_deallocate(void* /*memory*/, std::size_t /*bytes*/, std::size_t /*alignment*/) override {}
    [[nodiscard]] bool do_is_equal(const boost::json::memory_resource& other) const noexcept override {
        return this == &other;
    }
    std::shared_ptr<JsonMemory> memory_;
};

}  // namespace quomi

/// Values need not give their parts back one by one.
template <>
struct boost::json::is_deallocate_trivial<quomi::SharedJsonMemory> {
    static constexpr bool value = true;
};
