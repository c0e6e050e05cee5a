#pragma once

#include "tools/quomi/testing/test_case.h"

#include <iosfwd>
#include <string>

namespace quomi::tool {

/// One failure on several lines, each with a word in front: what was expected, what came, what is nearest.
[[nodiscard]] std::string textOf(const Failure& failure);

/// Prints results case by case, for people or as JSON lines. The stream outlives it.
class TestReport {
public:
    enum class Form { people, colours, json };

    TestReport(std::ostream& out, Form form) : out_(out), form_(form) {}

    void print(const TestCase& each);
    /// What all came to, for people.
    void finish(double seconds);

    [[nodiscard]] std::size_t failed() const { return failed_; }
    [[nodiscard]] std::size_t invalid() const { return invalid_; }

private:
    [[nodiscard]] std::string painted(const std::string& text, std::string_view colour) const;
    void printForPeople(const TestCase& each);
    void printJson(const TestCase& each);

    std::ostream& out_;
    const Form form_;
    std::size_t passed_ = 0;
    std::size_t failed_ = 0;
    std::size_t invalid_ = 0;
};

}  // namespace quomi::tool
