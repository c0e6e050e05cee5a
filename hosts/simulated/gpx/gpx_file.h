#pragma once

#include "hosts/simulated/track.h"
#include "quomi/util/error.h"

#include <optional>
#include <string>
#include <string_view>

namespace quomi::simulated {

/// Domain of the errors of this reader. Codes: 1 the file cannot be read, 2 its content is not what it must be.
inline constexpr const char* kGpxFileErrorDomain = "QuomiGpxFileErrorDomain";

/// Reads the tracks of a GPX file (1.1 or no version given, and 1.0, whose tracks are the same), UTF-8: the points of
/// all tracks and segments one after the other, as `trackOf` plays them. Routes, waypoints, elevations and
/// extensions are ignored.
///
/// Refused: what is no well-formed XML, a document type declaration (a track has none, and it is where entities come
/// from), another root, no point, no point with a time, a coordinate out of its range, a time that is none, more than
/// 64 MiB. Empty on failure; the error's description names file and line ("tour.gpx:12: lat: expected …").
[[nodiscard]] std::optional<Track> readGpxFile(const std::string& path, std::optional<Error>* error = nullptr);

/// The same from text already in memory; `name` stands for the file in errors.
[[nodiscard]] std::optional<Track> parseGpx(std::string_view text, const std::string& name,
                                            std::optional<Error>* error = nullptr);

}  // namespace quomi::simulated
