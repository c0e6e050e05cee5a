#pragma once

#include <filesystem>

namespace quomi {

class Files;

/// Takes a store of an earlier version to the version after it.
///
/// The next version is built beside the store, under its name with ".tmp" behind it, forced to the disk and moved over
/// the store. Before that the store takes in its write-ahead log and is left without side files, so that none of them
/// ever lies beside the new file. Killed at any moment, it leaves at the store's path one version or the other, with
/// all rows; the file beside it is removed by the next opening.
///
/// Every row is carried over with its key and its owner. An attribute that both versions have keeps its value; a real
/// that becomes an integer loses its fraction and saturates. A new attribute has its default. A required attribute for
/// which a row has no value takes the default too or, where there is none, the zero of its type: the empty text, 0, the
/// epoch. What only the earlier version had is dropped.
///
/// Nothing happens to a file that, once locked, proves to be of the current version or of none. Throws what SQLite
/// throws (a store that another connection has open is busy), and std::system_error for the file operations; the store
/// is then of the one version or the other, as after a kill.
void migrateOneStep(const std::filesystem::path& store, Files& files);

/// Removes what a killed step left beside the store. For stores that no step is working on.
void removeMigrationLeftovers(const std::filesystem::path& store, Files& files);

}  // namespace quomi
