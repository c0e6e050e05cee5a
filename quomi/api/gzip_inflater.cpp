#include "quomi/api/gzip_inflater.h"

#include <array>
#include <zlib.h>

namespace quomi {

struct GzipInflater::Stream {
    z_stream zlib{};
    ~Stream() { inflateEnd(&zlib); }
};

GzipInflater::GzipInflater() : stream_(std::make_unique<Stream>()) {
    constexpr int kGzipOnly = 16 + MAX_WBITS;
    if (inflateInit2(&stream_->zlib, kGzipOnly) != Z_OK) stream_.reset();
}

GzipInflater::~GzipInflater() = default;

GzipInflater::Outcome GzipInflater::add(std::string_view piece, std::string& text, std::uint64_t maxLength) {
    if (stream_ == nullptr) return Outcome::broken;
    z_stream& zlib = stream_->zlib;
    // zlib does not write through it.
    zlib.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(piece.data()));
    zlib.avail_in = static_cast<uInt>(piece.size());
    std::array<Bytef, 32768> room;
    do {
        // After one gzip member another one may follow.
        if (isComplete_ && inflateReset(&zlib) != Z_OK) return Outcome::broken;
        isComplete_ = false;
        zlib.next_out = room.data();
        zlib.avail_out = static_cast<uInt>(room.size());
        const int code = inflate(&zlib, Z_NO_FLUSH);
        if (code != Z_OK && code != Z_STREAM_END && code != Z_BUF_ERROR) return Outcome::broken;
        const std::size_t length = room.size() - zlib.avail_out;
        if (length > maxLength - text.size()) return Outcome::tooLong;
        text.append(reinterpret_cast<const char*>(room.data()), length);
        isComplete_ = code == Z_STREAM_END;
    } while (zlib.avail_in > 0 || (!isComplete_ && zlib.avail_out == 0));
    return Outcome::fine;
}

}  // namespace quomi
