#pragma once

#include "quomi/util/error.h"

#include <optional>

#include <boost/json/fwd.hpp>

namespace quomi {

class Clock;
class QuomiData;
class QuomiErrors;

/// Turns the server's decoded answers into stored records. A value of a wrong type takes its default; an answer that
/// does not say "success", or lacks what the store requires, fails with 402 and changes nothing. Host's thread only.
class QuomiDataApiResponseParser {
public:
    /// All three outlive the parser.
    QuomiDataApiResponseParser(QuomiData& dataManager, const QuomiErrors& errors, const Clock& clock)
        : dataManager_(dataManager), errors_(errors), clock_(clock) {}

    /// Stores the application record in place of the one there was.
    bool parseAndSaveApiApplicationResponseData(const boost::json::value& response,
                                                std::optional<Error>* error = nullptr);
    /// Stores the device-wide limits and forgets what they no longer ask about.
    bool parseAndSaveApiApplicationLimitsResponseData(const boost::json::value& response,
                                                      std::optional<Error>* error = nullptr);

private:
    [[nodiscard]] bool fail(std::optional<Error>* error) const;

    QuomiData& dataManager_;
    const QuomiErrors& errors_;
    const Clock& clock_;
};

}  // namespace quomi
