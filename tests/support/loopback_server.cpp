#include "tests/support/loopback_server.h"

#include "quomi/util/ascii.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <netinet/in.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

#include <httplib.h>

namespace quomi::testing {
namespace {

constexpr std::chrono::seconds kPatience{5};

ReceivedRequest received(const httplib::Request& request) {
    ReceivedRequest result{request.method, request.target, {}, request.body};
    for (const auto& [name, value] : request.headers) result.headers.emplace_back(lowerCase(name), value);
    return result;
}

void answer(const HttpResponse& given, httplib::Response& response) {
    response.status = given.status;
    response.body = given.body;
    for (const auto& [name, value] : given.headers) response.set_header(name, value);
}

sockaddr_in loopback(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

/// A socket bound to a free port, and the port.
std::pair<int, int> boundSocket() {
    const int socket = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address = loopback(0);
    socklen_t size = sizeof address;
    auto* raw = reinterpret_cast<sockaddr*>(&address);
    if (::bind(socket, raw, size) != 0 || ::getsockname(socket, raw, &size) != 0) throw std::runtime_error("bind");
    return {socket, ntohs(address.sin_port)};
}

/// Waits until the socket can be read or written, or the other end of the pipe is closed; false for the latter.
bool waitFor(int socket, short events, int stopPipe) {
    std::array<pollfd, 2> waits{pollfd{socket, events, 0}, pollfd{stopPipe, POLLIN, 0}};
    while (::poll(waits.data(), waits.size(), -1) < 0) {
    }
    return waits[1].revents == 0;
}
bool waitReadable(int socket, int stopPipe) {
    return waitFor(socket, POLLIN, stopPipe);
}

/// Lets the time pass; false when the other end of the pipe is closed before.
bool sleepFor(std::chrono::milliseconds span, int stopPipe) {
    pollfd wait{stopPipe, POLLIN, 0};
    return ::poll(&wait, 1, static_cast<int>(span.count())) <= 0;
}

}  // namespace

struct TlsIdentity::Parts {
    EVP_PKEY* key = EVP_EC_gen("P-256");
    X509* certificate = X509_new();
    ~Parts() {
        X509_free(certificate);
        EVP_PKEY_free(key);
    }
};

TlsIdentity::TlsIdentity(const std::string& subject) : parts_(std::make_unique<Parts>()) {
    X509* certificate = parts_->certificate;
    X509_set_version(certificate, X509_VERSION_3);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate), 1);
    X509_gmtime_adj(X509_getm_notBefore(certificate), -3600);
    X509_gmtime_adj(X509_getm_notAfter(certificate), 3600);
    X509_set_pubkey(certificate, parts_->key);
    X509_NAME* name = X509_get_subject_name(certificate);
    const auto* commonName = reinterpret_cast<const unsigned char*>("quomi test");
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, commonName, -1, -1, 0);
    X509_set_issuer_name(certificate, name);
    X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, nullptr, NID_subject_alt_name, subject.c_str());
    X509_add_ext(certificate, extension, -1);
    X509_EXTENSION_free(extension);
    if (X509_sign(certificate, parts_->key, EVP_sha256()) == 0) throw std::runtime_error("sign");
}

TlsIdentity::~TlsIdentity() = default;

void TlsIdentity::writeCertificate(const std::filesystem::path& file) const {
    std::FILE* stream = std::fopen(file.c_str(), "w");
    if (stream == nullptr) throw std::runtime_error("open " + file.string());
    PEM_write_X509(stream, parts_->certificate);
    static_cast<void>(std::fclose(stream));
}

std::string TlsIdentity::pin() const {
    unsigned char* der = nullptr;
    const int length = i2d_PUBKEY(parts_->key, &der);
    std::array<unsigned char, 32> digest{};
    EVP_Digest(der, static_cast<std::size_t>(length), digest.data(), nullptr, EVP_sha256(), nullptr);
    OPENSSL_free(der);
    std::array<unsigned char, 48> text{};
    const int written = EVP_EncodeBlock(text.data(), digest.data(), static_cast<int>(digest.size()));
    return "sha256//" + std::string(text.begin(), text.begin() + written);
}

std::string ReceivedRequest::header(const std::string& lowerCaseName) const {
    const auto found = std::ranges::find(headers, lowerCaseName, &HttpHeaders::value_type::first);
    return found == headers.end() ? std::string() : found->second;
}

struct LoopbackServer::Running {
    std::unique_ptr<httplib::Server> server;
    std::string scheme;
    int port = 0;
    std::thread thread;

    void start(const Handler& handler) {
        const auto serve = [handler](const httplib::Request& request, httplib::Response& response) {
            answer(handler(received(request)), response);
        };
        server->set_tcp_nodelay(true);
        server->new_task_queue = [] { return new httplib::ThreadPool(16); };
        server->Get(".*", serve).Post(".*", serve).Put(".*", serve);
        port = server->bind_to_any_port("127.0.0.1");
        thread = std::thread([this] { server->listen_after_bind(); });
        while (!server->is_running()) std::this_thread::yield();
    }
};

LoopbackServer::LoopbackServer(Handler handler) : running_(std::make_unique<Running>()) {
    running_->server = std::make_unique<httplib::Server>();
    running_->scheme = "http";
    running_->start(handler);
}

LoopbackServer::LoopbackServer(const TlsIdentity& identity, Handler handler) : running_(std::make_unique<Running>()) {
    running_->server = std::make_unique<httplib::SSLServer>(identity.parts_->certificate, identity.parts_->key);
    running_->scheme = "https";
    running_->start(handler);
}

LoopbackServer::~LoopbackServer() {
    running_->server->stop();
    running_->thread.join();
}

int LoopbackServer::port() const {
    return running_->port;
}

std::string LoopbackServer::url(const std::string& path, const std::string& host) const {
    return running_->scheme + "://" + host + ":" + std::to_string(running_->port) + path;
}

struct RawServer::Running {
    std::function<void(const Send&)> script;
    Afterwards afterwards = Afterwards::close;
    int listener = -1;
    int port = 0;
    std::array<int, 2> stopPipe{};  // its write end closes when the server ends

    std::mutex mutex;  // guards the two below
    std::condition_variable changed;
    std::string lastRequest;
    int departures = 0;

    std::thread thread;

    void run() {
        std::vector<std::thread> connections;
        while (waitReadable(listener, stopPipe[0])) {
            const int client = ::accept(listener, nullptr, nullptr);
            if (client >= 0) connections.emplace_back([this, client] { serve(client); });
        }
        for (std::thread& connection : connections) connection.join();
    }

    void serve(int client) {
        if (readHead(client)) {
            script([this, client](std::string_view bytes, std::chrono::milliseconds pause) {
                return (pause.count() == 0 || sleepFor(pause, stopPipe[0])) && sendBytes(client, bytes);
            });
            if (afterwards == Afterwards::hold) awaitDeparture(client);
        }
        ::close(client);
    }

    bool readHead(int client) {
        std::string head;
        std::array<char, 4096> buffer{};
        while (head.find("\r\n\r\n") == std::string::npos) {
            if (!waitReadable(client, stopPipe[0])) return false;
            const auto length = ::recv(client, buffer.data(), buffer.size(), 0);
            if (length <= 0) return false;
            head.append(buffer.data(), static_cast<std::size_t>(length));
        }
        const std::lock_guard lock(mutex);
        lastRequest = head;
        changed.notify_all();
        return true;
    }

    [[nodiscard]] bool sendBytes(int client, std::string_view bytes) const {
        while (!bytes.empty()) {
            if (!waitFor(client, POLLOUT, stopPipe[0])) return false;
            const auto length = ::send(client, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
            if (length <= 0) return false;
            bytes.remove_prefix(static_cast<std::size_t>(length));
        }
        return true;
    }

    void awaitDeparture(int client) {
        char byte = 0;
        while (waitReadable(client, stopPipe[0])) {
            if (::recv(client, &byte, 1, 0) > 0) continue;
            const std::lock_guard lock(mutex);
            ++departures;
            changed.notify_all();
            return;
        }
    }
};

RawServer::RawServer(std::string answer, Afterwards afterwards)
    : RawServer([answer = std::move(answer)](const Send& send) { send(answer, {}); }) {
    running_->afterwards = afterwards;
}

RawServer::RawServer(std::function<void(const Send&)> script) : running_(std::make_unique<Running>()) {
    running_->script = std::move(script);
    std::tie(running_->listener, running_->port) = boundSocket();
    if (::listen(running_->listener, 64) != 0 || ::pipe(running_->stopPipe.data()) != 0) {
        throw std::runtime_error("listen");
    }
    running_->thread = std::thread([running = running_.get()] { running->run(); });
}

RawServer::~RawServer() {
    ::close(running_->stopPipe[1]);
    running_->thread.join();
    ::close(running_->stopPipe[0]);
    ::close(running_->listener);
}

int RawServer::port() const {
    return running_->port;
}

std::string RawServer::url(const std::string& path) const {
    return "http://127.0.0.1:" + std::to_string(running_->port) + path;
}

std::string RawServer::lastRequest() const {
    std::unique_lock lock(running_->mutex);
    running_->changed.wait_for(lock, kPatience, [this] { return !running_->lastRequest.empty(); });
    return running_->lastRequest;
}

bool RawServer::waitForClientToLeave() const {
    std::unique_lock lock(running_->mutex);
    return running_->changed.wait_for(lock, kPatience, [this] { return running_->departures > 0; });
}

int unusedPort() {
    const auto [socket, port] = boundSocket();
    ::close(socket);
    return port;
}

}  // namespace quomi::testing
