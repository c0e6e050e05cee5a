#pragma once

#include <functional>
#include <memory>
#include <utility>

namespace quomi {

/// Ties callbacks to the object that they call: a guarded callback does nothing once the object has gone, has ended or
/// has begun anew. Meant as the last member, so that it goes first. One thread.
///
/// It also answers whoever calls out to the host and wants to go on afterwards: the host may have ended the object
/// meanwhile, or ended and begun it anew.
class Lifetime {
    struct Token {};

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

    /// Remembers the lifetime as it is now; may outlive the object.
    class Watch {
    public:
        explicit Watch(const Lifetime& lifetime) : token_(lifetime.token_) {}
        /// Whether it has neither ended nor begun anew since.
        [[nodiscard]] bool goesOn() const { return !token_.expired(); }

    private:
        std::weak_ptr<Token> token_;
    };

    /// Takes the steps one after the other. None is taken any more once this lifetime has ended or begun anew, which
    /// any of them may bring about. Whether it goes on after the last one.
    template <class... Steps>
    bool inTurn(const Steps&... steps) const {
        const Watch watch(*this);
        const auto take = [&watch](const auto& step) {
            if (watch.goesOn()) step();
            return watch.goesOn();
        };
        return (take(steps) && ...);
    }

    /// No guarded callback runs any more, nor any that is guarded later.
    void end() { token_.reset(); }
    /// What was guarded before does not run any more, what is guarded from now on does.
    void renew() { token_ = std::make_shared<Token>(); }
    [[nodiscard]] bool hasEnded() const { return token_ == nullptr; }

private:
    std::shared_ptr<Token> token_ = std::make_shared<Token>();
};

}  // namespace quomi
