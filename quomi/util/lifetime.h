#pragma once

#include <functional>
#include <memory>
#include <utility>

namespace quomi {

/// Ties callbacks to the object that they call: a guarded callback does nothing once the object has gone, has ended or
/// has begun anew. Meant as the last member, so that it goes first. One thread.
class Lifetime {
public:
    Lifetime() = default;
    Lifetime(const Lifetime&) = delete;
    Lifetime& operator=(const Lifetime&) = delete;

    /// A callback that calls `work` with the same arguments as long as this lifetime goes on.
    template <class Work>
    [[nodiscard]] auto guard(Work work) const {
        return [watched = std::weak_ptr(token_), work = std::move(work)](auto&&... arguments) {
            if (!watched.expired()) std::invoke(work, std::forward<decltype(arguments)>(arguments)...);
        };
    }

    /// No guarded callback runs any more, nor any that is guarded later.
    void end() { token_.reset(); }
    /// What was guarded before does not run any more, what is guarded from now on does.
    void renew() { token_ = std::make_shared<Token>(); }
    [[nodiscard]] bool hasEnded() const { return token_ == nullptr; }

private:
    struct Token {};
    std::shared_ptr<Token> token_ = std::make_shared<Token>();
};

}  // namespace quomi
