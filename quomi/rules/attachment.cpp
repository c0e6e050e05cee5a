#include "quomi/rules/attachment.h"

#include "quomi/api/http_transport.h"
#include "quomi/platform/files.h"
#include "quomi/util/ascii.h"
#include "quomi/util/host_call.h"
#include "quomi/util/percent.h"
#include "quomi/util/text.h"
#include "quomi/util/utf8.h"

#include <algorithm>
#include <functional>
#include <system_error>
#include <utility>

namespace quomi {

namespace {

constexpr const char* kFolder = "QuomiAttachments";
constexpr const char* kNamelessImage = "image";
constexpr std::size_t kLongestName = 128;  // bytes; a file system takes 255 at most
constexpr Duration kTimeout = std::chrono::seconds(60);

/// The last component of the URL's path, still encoded; slashes at the end do not count.
std::string_view lastPathComponent(std::string_view url) {
    url = url.substr(0, url.find_first_of("?#"));
    const auto scheme = url.find("://");
    if (scheme != std::string_view::npos) url.remove_prefix(scheme + 3);
    const auto path = url.find('/');
    if (path == std::string_view::npos) return {};
    url.remove_prefix(path);
    while (url.ends_with('/')) url.remove_suffix(1);
    return url.substr(url.find_last_of('/') + 1);
}

bool mayStandInName(char c) {
    return !isAscii(c) || (c >= ' ' && c != '\x7F' && c != '/' && c != '\\' && c != '"' && c != ':');
}

void cutToEnd(std::string& name) {
    if (name.size() <= kLongestName) return;
    name.erase(0, name.size() - kLongestName);
    name.erase(name.begin(), std::ranges::find_if_not(name, isUtf8Continuation));
}

}  // namespace

std::string attachmentFileName(std::string_view url) {
    auto name = percentDecoded(lastPathComponent(url));
    std::ranges::replace_if(name, std::not_fn(mayStandInName), '_');
    if (!isUtf8(name)) std::ranges::replace_if(name, std::not_fn(isAscii), '_');
    cutToEnd(name);
    if (name.find_first_not_of('.') == std::string::npos) name = kNamelessImage;
    return "QuomiAttachment+" + name;
}

struct AttachmentDownloads::Download {
    std::string url;
    Done done;
    std::unique_ptr<HttpTask> task;
};

AttachmentDownloads::AttachmentDownloads(HttpTransport& http, Files& files) : http_(http), files_(files) {}

AttachmentDownloads::~AttachmentDownloads() {
    cancelAll();
}

void AttachmentDownloads::download(const std::string& url, Done done) {
    const auto download = std::make_shared<Download>(Download{url, std::move(done), nullptr});
    downloads_.push_back(download);
    download->task =
        http_.send({"GET", url, {}, {}, kTimeout}, [this, weak = std::weak_ptr(download)](const HttpResult& result) {
            if (const auto ended = weak.lock()) finish(ended, std::get_if<HttpResponse>(&result));
        });
}

void AttachmentDownloads::cancelAll() {
    const auto dropped = std::exchange(downloads_, {});
    // Whoever holds one longer holds no request with it.
    for (const auto& download : dropped) download->task.reset();
}

void AttachmentDownloads::finish(const std::shared_ptr<Download>& download, const HttpResponse* response) {
    std::erase(downloads_, download);
    const auto file = response != nullptr ? store(download->url, *response) : std::nullopt;
    callHost(download->done, file);
}

std::optional<std::filesystem::path> AttachmentDownloads::store(const std::string& url, const HttpResponse& response) {
    const bool isImage = response.status >= 200 && response.status <= 299 && !response.body.empty() &&
                         response.body.size() <= kLargestAttachment;
    if (!isImage) return std::nullopt;
    const auto folder = files_.cachesDirectory() / kFolder;
    auto file = folder / attachmentFileName(url);
    std::error_code error;
    if (!files_.createDirectories(folder, error) || !files_.replace(file, response.body, error)) return std::nullopt;
    return file;
}

}  // namespace quomi
