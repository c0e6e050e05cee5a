#pragma once

#include "quomi/platform/files.h"
#include "quomi/platform/user_defaults.h"

#include <filesystem>

#include <boost/json/object.hpp>

namespace quomi::posix {

/// User defaults in one JSON file, `Preferences/defaults.json` of the library directory.
///
/// It is read once, at construction; a missing or unreadable file counts as empty and the next write replaces it.
/// Values of other types that stand in the file stay there.
class JsonDefaults : public UserDefaults {
public:
    /// `files` outlives the object.
    explicit JsonDefaults(Files& files);

    [[nodiscard]] std::optional<bool> boolForKey(const std::string& key) const override;
    /// The value counts at once even when writing it fails; it is then gone with the object.
    void setBool(const std::string& key, bool value) override;

private:
    void write();

    Files& files_;
    std::filesystem::path path_;
    boost::json::object values_;
};

}  // namespace quomi::posix
