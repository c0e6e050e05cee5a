#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quomi {

class Files;
class HttpTask;
class HttpTransport;
struct HttpResponse;

/// Largest image that is attached to a notification, in bytes.
inline constexpr std::size_t kLargestAttachment = std::size_t{10} * 1024 * 1024;

/// Name of the file in which the image of a URL is kept: "QuomiAttachment+" and the URL's last path component, decoded.
/// One that is no plain file name (empty, dots alone, with separators, control characters or bytes that are no UTF-8,
/// or longer than 128 bytes) is made one: what does not belong becomes "_", of what is too long the end stays, and
/// without anything left it is "image".
[[nodiscard]] std::string attachmentFileName(std::string_view url);

/// Downloads images for notifications into a folder of their own below the app's caches. Host's thread only.
class AttachmentDownloads {
public:
    /// The path of the image's file; nothing when it could not be had.
    using Done = std::function<void(const std::optional<std::filesystem::path>& file)>;

    /// The ports outlive the object.
    AttachmentDownloads(HttpTransport& http, Files& files);
    ~AttachmentDownloads();
    AttachmentDownloads(const AttachmentDownloads&) = delete;
    AttachmentDownloads& operator=(const AttachmentDownloads&) = delete;

    /// Downloads an http or https URL. `done` is called once, in a later turn; with nothing after a failure, for a
    /// status outside 200..299, for an empty image and one larger than `kLargestAttachment`. It may end this object.
    void download(const std::string& url, Done done);
    /// Drops all of them; nobody is called back for them.
    void cancelAll();

private:
    struct Download;

    void finish(const std::shared_ptr<Download>& download, const HttpResponse* response);
    [[nodiscard]] std::optional<std::filesystem::path> store(const std::string& url, const HttpResponse& response);

    HttpTransport& http_;
    Files& files_;
    std::vector<std::shared_ptr<Download>> downloads_;
};

}  // namespace quomi
