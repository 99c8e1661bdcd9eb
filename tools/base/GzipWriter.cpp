#include "tools/base/GzipWriter.h"

#include <array>
#include <cerrno>
#include <condition_variable>
#include <mutex>
#include <string>
#include <system_error>
#include <thread>
#include <utility>

#define ZLIB_CONST
#include <zlib.h>

namespace NimaPost {

namespace {

/// Handed over at once.
constexpr std::size_t kBlock = 1 << 18;
constexpr int kGzip = 15 + 16; ///< the largest window, with a gzip head and tail
constexpr int kFastest = 1;
constexpr int kMostMemory = 9;

class GzipWriter final : public OutputFilter {
  public:
    explicit GzipWriter(std::FILE* file) : file_(file) {
        if (deflateInit2(&deflate_, kFastest, Z_DEFLATED, kGzip, kMostMemory, Z_DEFAULT_STRATEGY) != Z_OK) {
            throw std::system_error(ENOMEM, std::generic_category());
        }
        const cookie_io_functions_t functions{nullptr, Take, nullptr, nullptr};
        stream_ = fopencookie(this, "w", functions);
        if (stream_ == nullptr) {
            const int error = errno;
            deflateEnd(&deflate_);
            throw std::system_error(error, std::generic_category());
        }
        std::setvbuf(stream_, nullptr, _IONBF, 0);
        try {
            thread_ = std::thread([this] { Compress(); });
        } catch (...) {
            std::fclose(stream_);
            deflateEnd(&deflate_);
            throw;
        }
    }

    ~GzipWriter() override {
        // What was not finished is of no use.
        filling_.clear();
        End();
        std::fclose(stream_);
        deflateEnd(&deflate_);
    }

    std::FILE* Stream() override { return stream_; }

    int Finish() override {
        HandOver();
        End();
        return error_;
    }

  private:
    /// What the stream calls. It tells of an error only once, so all is taken, and `Finish` tells.
    static ssize_t Take(void* self, const char* text, std::size_t size) {
        GzipWriter& writer = *static_cast<GzipWriter*>(self);
        writer.filling_.append(text, size);
        if (writer.filling_.size() >= kBlock) {
            writer.HandOver();
        }
        return static_cast<ssize_t>(size);
    }

    void HandOver() {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return !waiting_; });
        std::swap(block_, filling_);
        waiting_ = true;
        changed_.notify_one();
        filling_.clear();
    }

    void End() {
        if (!thread_.joinable()) {
            return;
        }
        {
            const std::lock_guard lock(mutex_);
            ended_ = true;
        }
        changed_.notify_one();
        thread_.join();
    }

    /// The thread.
    void Compress() {
        std::string text;
        for (bool last = false; !last;) {
            {
                std::unique_lock lock(mutex_);
                changed_.wait(lock, [&] { return waiting_ || ended_; });
                last = !waiting_;
                std::swap(text, block_);
                waiting_ = false;
            }
            changed_.notify_one();
            Deflate(last ? std::string() : text, last ? Z_FINISH : Z_NO_FLUSH);
        }
    }

    void Deflate(const std::string& text, int flush) {
        deflate_.next_in = reinterpret_cast<const Bytef*>(text.data());
        deflate_.avail_in = static_cast<uInt>(text.size());
        do {
            deflate_.next_out = packed_.data();
            deflate_.avail_out = static_cast<uInt>(packed_.size());
            deflate(&deflate_, flush);
            const std::size_t size = packed_.size() - deflate_.avail_out;
            if (error_ == 0 && std::fwrite(packed_.data(), 1, size, file_) != size) {
                error_ = errno;
            }
        } while (deflate_.avail_out == 0);
    }

    std::FILE* file_;
    std::FILE* stream_ = nullptr;
    std::string filling_; ///< by the program's own thread
    std::thread thread_;

    std::mutex mutex_;
    std::condition_variable changed_;
    // What both threads use, under the mutex.
    std::string block_;
    bool waiting_ = false; ///< the block is to be compressed
    bool ended_ = false;

    // What only the thread uses, until it has ended.
    z_stream deflate_{};
    std::array<Bytef, kBlock> packed_{};
    int error_ = 0;
};

} // namespace

std::unique_ptr<OutputFilter> MakeGzipWriter(std::FILE* file) {
    try {
        return std::make_unique<GzipWriter>(file);
    } catch (const std::system_error& failed) {
        errno = failed.code().value();
        return nullptr;
    }
}

} // namespace NimaPost
