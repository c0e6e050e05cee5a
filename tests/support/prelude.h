#pragma once

// What nearly every test uses: containers and texts, JSON, fmt, GoogleTest with the usual matchers.

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>
#include <boost/json/value.hpp>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace quomi {

using namespace std::chrono_literals;
using ::testing::AllOf;
using ::testing::Contains;
using ::testing::DoubleNear;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::Pair;
using ::testing::Pointwise;
using ::testing::SizeIs;
using ::testing::StartsWith;
using ::testing::UnorderedElementsAre;

using Strings = std::vector<std::string>;

/// The cases of a test, a row each. The loop names the columns: `for (const auto& [url, host] : Table<…>{…})`.
template <class... Columns>
using Table = std::vector<std::tuple<Columns...>>;

/// The whole file; empty when it cannot be read.
inline std::string contentOf(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

/// Makes the file, with its directories.
inline void write(const std::filesystem::path& file, const std::string& bytes) {
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << bytes;
}

/// The parts of a text between " | ".
inline Strings parts(std::string_view text) {
    Strings found;
    for (std::size_t end = 0; end != std::string_view::npos && !text.empty(); text.remove_prefix(end + 3)) {
        end = text.find(" | ");
        found.emplace_back(text.substr(0, end));
        if (end == std::string_view::npos) break;
    }
    return found;
}

namespace test {

using std::chrono::milliseconds;
using std::chrono::seconds;

}  // namespace test
}  // namespace quomi
