#pragma once

#include <cstddef>
#include <random>
#include <string>
#include <string_view>

namespace quomi {

/// Texts that resemble a sample: it is repeated and cut, and some of its bytes are exchanged for others. Repeatable.
class RandomText {
public:
    explicit RandomText(unsigned seed) : random_(seed) {}

    std::string like(std::string_view sample) {
        std::string text(sample);
        for (unsigned changes = below(4); changes > 0 && !text.empty(); --changes) {
            const std::size_t at = below(static_cast<unsigned>(text.size()));
            switch (below(4)) {
                case 0:
                    text[at] = static_cast<char>(below(256));
                    break;
                case 1:
                    text.erase(at, 1 + below(3));
                    break;
                case 2:
                    text.insert(at, text.substr(below(static_cast<unsigned>(text.size()))));
                    break;
                default:
                    text[at] = "0123456789+-:.TZ \"{}[],e"[below(24)];
                    break;
            }
        }
        return text;
    }

private:
    unsigned below(unsigned bound) { return std::uniform_int_distribution<unsigned>(0, bound - 1)(random_); }

    std::mt19937 random_;
};

}  // namespace quomi
