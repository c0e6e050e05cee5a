#pragma once

#include "tests/durability/kill_walk.h"

namespace quomi {
struct QuomiStatusInfo;
}

namespace quomi::test {

/// Opening, migrating, saving: after the kill the store is the old or the new one, whole, and holds every save that
/// returned.
[[nodiscard]] std::vector<Scenario> openingScenarios();
[[nodiscard]] std::vector<Scenario> migrationScenarios();
[[nodiscard]] std::vector<Scenario> savingScenarios();

/// The building blocks, for the faulty variants.
[[nodiscard]] std::filesystem::path storePath(const Platform& platform);
[[nodiscard]] Scenario migrationStep(int version);
using SaveStatus = std::function<void(const Platform&, int generation)>;
[[nodiscard]] Scenario savingStatus(const SaveStatus& save);
/// Writes one generation into every beacon of the store, all of them or none.
using BulkUpdate = std::function<void(const Platform&, int generation)>;
[[nodiscard]] Scenario bulkUpdating(const BulkUpdate& update);

/// Where the next process logs an event of its own.
enum class LogsFirst { yes, no };
/// Whether batches are taken out of a long log, which is drained, or of one that is written anew.
enum class LogLength { isShort, isLong };

/// A process logs, hands over batches and has them uploaded. After the kill every accepted event arrives, a batch in
/// the batch file first and as it is, at most one batch repeats, and nothing arrives that nobody logged.
[[nodiscard]] Scenario loggingAndUploading(LogsFirst logsFirst, LogLength length = LogLength::isShort);

/// A process logs an event that the server refuses for good, which is set aside, and one that it accepts. After the
/// kill each accepted event has arrived or is set aside.
[[nodiscard]] Scenario beingRefused();

/// What the next launch after a loss of power may miss besides: events that were accepted after the last hand-over, or
/// after the long log began to be drained. Each event arrives at most `mostUploads` times.
[[nodiscard]] std::string complaintAfterPowerLoss(const Platform& platform, Witness witness, int mostUploads,
                                                  LogLength length);

}  // namespace quomi::test
